#include "base/format_text.h"

#include <cstddef>
#include <cstdio>

namespace base {

std::string formatTextV(const char* format, std::va_list arguments) {
  std::va_list again;
  va_copy(again, arguments);
  char line[256];  // most lines fit, and cost no second pass
  const int length = std::vsnprintf(line, sizeof line, format, arguments);
  std::string text;
  if (length > 0 && static_cast<std::size_t>(length) < sizeof line) {
    text.assign(line, static_cast<std::size_t>(length));
  } else if (length > 0) {
    text.resize(static_cast<std::size_t>(length) + 1);
    std::vsnprintf(text.data(), text.size(), format, again);
    text.pop_back();
  }
  va_end(again);
  return text;
}

std::string formatText(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::string text = formatTextV(format, arguments);
  va_end(arguments);
  return text;
}

}  // namespace base
