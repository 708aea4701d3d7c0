#include "config/debug_log.h"

#include <cstdarg>
#include <string>

#include "base/format_text.h"
#include "config/pass_files.h"
#include "platform/system/files.h"

namespace config {

void DebugLog::recreate() {
  if (enabled_) platform::writeWholeFile(kDebugLogFile, "");
}

void DebugLog::print(const char* format, ...) {
  if (!enabled_) return;
  std::va_list arguments;
  va_start(arguments, format);
  const std::string text = base::formatTextV(format, arguments);
  va_end(arguments);
  printAlways(text);
}

void DebugLog::printAlways(std::string_view text) {
  if (hasFile_) platform::appendToFile(kDebugLogFile, text);
}

}  // namespace config
