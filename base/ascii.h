// Small questions about text, the same in every locale: only ASCII letters have two cases.
// Pure functions.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace base {

inline bool isBlank(char c) {
  return c == ' ' || c == '\t';
}
inline bool isSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}
inline char lowerAscii(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

std::string_view trimmed(std::string_view text);  // without white space at both ends
std::string lowered(std::string_view text);
bool beginsWithNoCase(std::string_view text, std::string_view prefix);
inline bool equalsNoCase(std::string_view left, std::string_view right) {
  return left.size() == right.size() && beginsWithNoCase(left, right);  // most differ in length
}
bool containsNoCase(std::string_view text, std::string_view part);

// How many bytes at the start are below 0x80.
std::size_t asciiLength(std::string_view text);
// How many bytes stand before the first CR or LF.
std::size_t lineLength(std::string_view text);
// Whether any byte is 0x80 or above.
bool contains8bit(std::string_view text);

}  // namespace base
