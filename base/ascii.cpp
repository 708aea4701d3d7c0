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

bool contains8bit(std::string_view text) {
  // Eight bytes at a time: bodies of megabytes come through here.
  constexpr std::uint64_t kHighBits = 0x8080808080808080U;
  while (text.size() >= sizeof(std::uint64_t)) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data(), sizeof word);
    if ((word & kHighBits) != 0) return true;
    text.remove_prefix(sizeof word);
  }
  return std::any_of(text.begin(), text.end(), [](char c) { return (c & 0x80) != 0; });
}

}  // namespace base
