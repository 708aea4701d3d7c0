// What an administrator should hear of a pass: problems (something was not done as it should be)
// and notes (what may be a mistake). Whoever finds one says it here once, in one line that names
// cause and cure; console, journal and report are made from it. Used by the thread of the pass.
// Memory is bounded: the first lines of a kind are kept, the rest is counted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace config {

enum class FindingKind { Problem, Note };

// What a problem lies in, where an administrator has an alert for that.
enum class Cause { Other, Settings, Directory, MailServer };

// "FAILED" or "note": what stands before a line of that kind.
const char* findingLabel(FindingKind kind);

struct FindingLines {
  std::vector<std::string> lines;  // the first Findings::kLinesKept
  std::uint64_t count = 0;         // of all
};

class Findings {
 public:
  static constexpr std::size_t kLinesKept = 100;
  // Gets each line that is kept, at once.
  using Listener = std::function<void(FindingKind kind, Cause cause, const std::string& line)>;

  void listen(Listener listener) { listener_ = std::move(listener); }

  // Text in the ANSI code page, no secret. Control characters are replaced: names and texts of a
  // directory or a server neither steer a terminal nor read as a line of their own.
  void problem(const std::string& text, Cause cause = Cause::Other);
  void note(const std::string& text);

  const FindingLines& problems() const { return problems_; }
  const FindingLines& notes() const { return notes_; }

 private:
  void add(FindingKind kind, Cause cause, FindingLines& lines, const std::string& text);

  Listener listener_;
  FindingLines problems_;
  FindingLines notes_;
};

}  // namespace config
