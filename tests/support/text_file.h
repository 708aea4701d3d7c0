// A text file as UTF-8 with lines that end in "\n", whatever code page and line ends
// it has on disk.
#pragma once

#include <cstdio>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

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

// What the file has below its line "== heading", up to the next of them; empty when there is none.
inline std::string sectionOf(const std::string& name, const std::string& heading) {
  const std::string text = readText(name) + "\n==", line = "\n== " + heading + '\n';
  const std::size_t at = text.find(line);
  if (at == std::string::npos) return "";
  return text.substr(at + line.size(), text.find("\n==", at + 1) - at - line.size());
}

// The bytes on disk; empty when the file cannot be read.
inline std::string readBytes(const std::string& name) {
  std::string bytes;
  platform::readWholeFile(name, bytes);
  return bytes;
}

// The rows of a data file: "LEFT -> RIGHT" a line, but for empty lines and those that begin with
// "#".
inline std::vector<std::pair<std::string, std::string>> readRows(const std::string& name) {
  constexpr std::string_view kArrow = " -> ";
  std::istringstream lines(readBytes(name));
  std::vector<std::pair<std::string, std::string>> rows;
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line.starts_with('#')) continue;
    const std::size_t arrow = line.find(kArrow);
    EXPECT_NE(arrow, std::string::npos) << line;
    if (arrow == std::string::npos) continue;
    rows.emplace_back(line.substr(0, arrow), line.substr(arrow + kArrow.size()));
  }
  EXPECT_FALSE(rows.empty()) << name;
  return rows;
}

// The text with the bytes that a data file writes as "<0d>".
inline std::string unprintable(std::string text) {
  for (std::size_t at = 0; (at = text.find('<', at)) != std::string::npos; ++at) {
    unsigned byte = 0;
    if (text.size() < at + 4 || text[at + 3] != '>') continue;
    if (std::sscanf(&text[at], "<%2x>", &byte) == 1)
      text.replace(at, 4, 1, static_cast<char>(byte));
  }
  return text;
}

}  // namespace test_support
