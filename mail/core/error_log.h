// The log behind LastErrorText: a tree of entries below one root context, rendered as XML-like text
// or as HTML. Each object of the library owns one. Not shared between threads.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/log_base.h"
#include "mail/core/string_buffer.h"
#include "mail/core/validity.h"

namespace kelvado {

struct LogEntry2 {
  static constexpr char kError = 'E';
  static constexpr char kInfo = 'I';
  static constexpr char kTagged = 'T';
  static constexpr char kRaw = 'X';
  static constexpr char kContext = 'C';  // as any letter that is none of the above

  char kind = kContext;
  bool publicMethod = false;
  std::uint32_t serial = nextSerial();
  std::string tag;
  std::string text;
  std::vector<std::unique_ptr<LogEntry2>> children;
};

class ErrorLog : public base::LogBase {
 public:
  ErrorLog();
  ~ErrorLog() override;

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

  ValidityByte<0xC3> validity_;
  LogEntry2 root_;
  std::vector<LogEntry2*> open_;  // the innermost context last; never empty
};

}  // namespace kelvado
