// printf-style text in a std::string, for the log lines and report rows whose formats are fixed.
#pragma once

#include <cstdarg>
#include <string>

namespace base {

[[gnu::format(printf, 1, 2)]] std::string formatText(const char* format, ...);
[[gnu::format(printf, 1, 0)]] std::string formatTextV(const char* format, std::va_list arguments);

}  // namespace base
