// The include and exclude files of the policies: one user name a line. Used by the pass only.
//
// A list is UTF-8 when it begins with that encoding's mark or is valid UTF-8 beyond plain ASCII,
// else it is in the ANSI code page. Anything else (UTF-16, say) cannot be used.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>

#include "config/findings.h"
#include "platform/directory/account_database.h"
#include "platform/system/files.h"

namespace service {

// A read takes at most 127 characters: a longer line counts as several names.
inline constexpr std::size_t kListReadSize = 128;

struct PolicyFiles {
  std::string include;
  std::string exclude;
};

PolicyFiles policyFiles(int slot);

// One list, read name by name.
class UserList {
 public:
  enum class State { Missing, Unusable, Open };
  // A list that this program wrote is in the ANSI code page, whatever it looks like.
  enum class Writer { Person, Program };

  UserList(const std::string& file, Writer writer);
  // A list that this program has made in memory, as it would have written it to `file`.
  static UserList inMemory(const std::string& file, std::string text);

  State state() const { return state_; }
  const std::string& problem() const { return problem_; }  // of an unusable one; names the file
  std::uint64_t size() const { return size_; }             // bytes

  // The next name, in the ANSI code page. The last character of every line is cut, whatever it is,
  // then the blanks behind the name. False at the end, and when the list has become unusable.
  bool next(std::string& name);
  std::size_t line() const { return line_; }  // of that name, from 1; a long line has several

  // The name of a last line that lost a character, because no line end follows it; else empty.
  const std::string& cutName() const { return cutName_; }

 private:
  explicit UserList(std::string file) : file_(std::move(file)) {}
  bool readLine(std::string& line);
  void survey();
  void fail(const std::string& reason);
  bool isLastLine();

  std::string file_;
  platform::File stream_;
  std::optional<std::string> text_;  // of a list in memory, instead of the stream
  std::size_t at_ = 0;               // in the text
  State state_ = State::Missing;
  std::string problem_;
  std::uint64_t size_ = 0;
  bool utf8_ = false;
  bool first_ = true;  // the line to come
  std::size_t line_ = 0;
  bool lineEnded_ = true;
  std::string cutName_;
};

// What a name is compared by, whatever its letter case.
std::string nameKey(std::string_view ansi);

// The names of an exclude file; missing, it excludes nobody.
struct ExcludeList {
  bool usable = true;
  std::unordered_set<std::string> keys;
};

// Says among `findings` why the list cannot be used, or what in it may be a mistake: a name of no
// account, a last line without a line end.
ExcludeList readExcludeList(const std::string& file, platform::AccountDatabase& accounts,
                            config::Findings& findings);

// Says that the list's last line lost a character, if it did.
void noteCutName(const UserList& list, const std::string& file, config::Findings& findings);

}  // namespace service
