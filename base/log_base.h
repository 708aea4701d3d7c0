// The log interface: routines of the mail library and of the sockets report to it what they do and
// what failed. ErrorLog collects it, LogNull drops it. Texts are UTF-8. Not shared between threads.
#pragma once

#include <string_view>

namespace base {

class LogBase {
 public:
  virtual ~LogBase() = default;

  virtual void LogError(std::string_view text) = 0;
  virtual void Clear() = 0;
  // Opens a context tagged `name`; it gets the entries until LeaveContext. The flag marks the
  // context of a public method.
  virtual void EnterContext(std::string_view name, bool publicMethod) = 0;
  virtual void LeaveContext() = 0;  // without an open context: nothing
  virtual void LogData(std::string_view tag, std::string_view value) = 0;
  virtual void LogInfo(std::string_view text) = 0;
  virtual void LogRaw(std::string_view text) = 0;  // shown as it is
};

// An inner context for as long as it lives.
class LogContext {
 public:
  LogContext(LogBase& log, std::string_view name) : log_(log) { log_.EnterContext(name, false); }
  ~LogContext() { log_.LeaveContext(); }
  LogContext(const LogContext&) = delete;
  LogContext& operator=(const LogContext&) = delete;

 private:
  LogBase& log_;
};

}  // namespace base
