// The log behind LastErrorText: a tree of entries below one root context, rendered as XML-like text
// or as HTML. Each object of the library owns one. Not shared between threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/log_base.h"
#include "mail/core/string_buffer.h"
#include "mail/core/validity.h"

namespace kelvado {

// A node of the tree. Its children are the entries behind it that are deeper, up to the next one
// that is not: a log is written for every mail and seldom read, so a node costs no allocation.
struct LogEntry2 {
  static constexpr char kError = 'E';
  static constexpr char kInfo = 'I';
  static constexpr char kTagged = 'T';
  static constexpr char kRaw = 'X';
  static constexpr char kContext = 'C';  // as any letter that is none of the above

  char kind = kContext;
  bool publicMethod = false;
  std::uint32_t serial = nextSerial();
  std::size_t depth = 0;  // open contexts around it, the root not counted
  // In the bytes of the log: the tag from `tag` to `text`, the text from there to `end`.
  std::size_t tag = 0;
  std::size_t text = 0;
  std::size_t end = 0;
};

class ErrorLog : public base::LogBase {
 public:
  void LogError(std::string_view text) override;
  void Clear() override;  // drops everything but the root
  void EnterContext(std::string_view name, bool publicMethod) override;
  void LeaveContext() override;
  void LogData(std::string_view tag, std::string_view value) override;
  void LogInfo(std::string_view text) override;
  void LogRaw(std::string_view text) override;

  // The text of LastErrorText: every line ends in CR LF, nothing is indented.
  std::string text() const;
  // For display in HTML: contexts as nested block quotes.
  std::string html() const;

 private:
  LogEntry2& add(char kind, std::string_view tag, std::string_view text);
  template <class Style>
  std::string rendered() const;

  ValidityByte<0xC3> validity_;
  std::vector<LogEntry2> entries_;  // below the root, in the order of the text
  std::string bytes_;
  std::size_t depth_ = 0;  // of the next entry
};

}  // namespace kelvado
