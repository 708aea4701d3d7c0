#include "base/ascii.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace base {

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
  return text;
}

std::string lowered(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), lowerAscii);
  return out;
}

bool equalsNoCase(std::string_view left, std::string_view right) {
  return left.size() == right.size() && beginsWithNoCase(left, right);
}

bool beginsWithNoCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() &&
         std::equal(prefix.begin(), prefix.end(), text.begin(),
                    [](char a, char b) { return lowerAscii(a) == lowerAscii(b); });
}

bool containsNoCase(std::string_view text, std::string_view part) {
  return std::search(text.begin(), text.end(), part.begin(), part.end(),
                     [](char a, char b) { return lowerAscii(a) == lowerAscii(b); }) != text.end();
}

std::size_t asciiLength(std::string_view text) {
  // Eight bytes at a time: bodies have megabytes.
  constexpr std::uint64_t kHighBits = 0x8080808080808080U;
  std::size_t length = 0;
  for (; text.size() - length >= sizeof(std::uint64_t); length += sizeof(std::uint64_t)) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data() + length, sizeof word);
    if ((word & kHighBits) != 0) break;
  }
  while (length < text.size() && (text[length] & 0x80) == 0) ++length;
  return length;
}

bool contains8bit(std::string_view text) {
  return asciiLength(text) != text.size();
}

}  // namespace base
