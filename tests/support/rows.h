// Tables of tests as text, beside the tests. "== title" begins a table; each line behind it is a
// row of fields with '|' between them, and '#' begins a comment. Blanks around a field are none of
// it; a '\' at the end of a line continues it. \r, \n, \t, \\ and \xHH stand for bytes, {70*x} for
// "x" seventy times.
#pragma once

#include <array>
#include <cstddef>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/ascii.h"
#include "tests/support/text_file.h"

namespace test_support {

// Those that are neither empty nor comments.
inline std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream list(text);
  bool continued = false;
  for (std::string line; std::getline(list, line);) {
    if (line.ends_with('\r')) line.pop_back();
    if (line.empty() || line[0] == '#') continue;
    const bool goesOn = line.ends_with('\\') && !line.ends_with("\\\\");
    if (goesOn) line.pop_back();
    if (continued)
      lines.back() += base::trimmed(line);
    else
      lines.push_back(line);
    continued = goesOn;
  }
  return lines;
}

inline std::string unescaped(const std::string& line) {
  std::string bytes;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char next = line[i] == '\\' && i + 1 < line.size() ? line[++i] : '\0';
    if (next == 'x') {
      bytes += static_cast<char>(std::stoi(line.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      bytes += next == 'r' ? '\r' : next == 'n' ? '\n' : next == 't' ? '\t' : line[i];
    }
  }
  return bytes;
}

// With each {70*x} written out.
inline std::string repeated(std::string text) {
  for (std::size_t at = 0; (at = text.find('{', at)) != std::string::npos; ++at) {
    const std::size_t star = text.find('*', at), end = text.find('}', at);
    if (star >= end || end == std::string::npos) continue;
    std::string all;
    for (int i = std::stoi(text.substr(at + 1, star - at - 1)); i > 0; --i) {
      all += text.substr(star + 1, end - star - 1);
    }
    text.replace(at, end + 1 - at, all);
  }
  return text;
}

// The rows of a table, at least one; fields that are not there are empty.
template <std::size_t kFields>
std::vector<std::array<std::string, kFields>> rows(const std::string& file,
                                                   const std::string& title) {
  std::vector<std::array<std::string, kFields>> table;
  bool within = false;
  for (const std::string& line : linesOf(readBytes(file))) {
    if (line.starts_with("== ")) {
      within = line.substr(3) == title;
    } else if (within) {
      std::istringstream fields(line);
      std::size_t count = 0;
      auto& row = table.emplace_back();
      for (std::string field; std::getline(fields, field, '|'); ++count) {
        if (count < kFields) row[count] = unescaped(repeated(std::string(base::trimmed(field))));
      }
      EXPECT_LE(count, kFields) << line;
    }
  }
  EXPECT_FALSE(table.empty()) << file << ": " << title;
  return table;
}

}  // namespace test_support
