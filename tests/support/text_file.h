// A text file as UTF-8 with lines that end in "\n", whatever code page and line ends
// it has on disk.
#pragma once

#include <string>

#include "base/unicode.h"
#include "platform/system/files.h"
#include "platform/text/code_page.h"

namespace test_support {

// Empty when the file cannot be read.
inline std::string readText(const std::string& name) {
  const platform::File file = platform::openFile(name, "r");
  std::string text;
  if (file == nullptr) return text;
  constexpr std::size_t kLongestLine = 65536;
  for (std::string line; platform::readTextLine(file.get(), kLongestLine, line);) text += line;
  return base::utf16ToUtf8(platform::ansiToUtf16(text));
}

// The bytes on disk; empty when the file cannot be read.
inline std::string readBytes(const std::string& name) {
  std::string bytes;
  platform::readWholeFile(name, bytes);
  return bytes;
}

}  // namespace test_support
