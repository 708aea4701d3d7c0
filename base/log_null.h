// A log that drops everything, for calls whose log is not read.
#pragma once

#include "base/log_base.h"

namespace base {

class LogNull : public LogBase {
 public:
  void LogError(std::string_view) override {}
  void Clear() override {}
  void EnterContext(std::string_view, bool) override {}
  void LeaveContext() override {}
  void LogData(std::string_view, std::string_view) override {}
  void LogInfo(std::string_view) override {}
  void LogRaw(std::string_view) override {}
};

}  // namespace base
