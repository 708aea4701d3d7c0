#include "base/ascii.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace base {
namespace {

// Eight bytes at a time where that can be: bodies have megabytes.
using Word = std::uint64_t;

constexpr Word everyByte(Word value) {
  return value * 0x0101010101010101U;
}

// How many bytes at the start are none of those that are looked for. `maybe`: whether one of them
// may be among the eight of a word; `isOne` is asked for each byte of such a word.
template <class Maybe, class IsOne>
std::size_t lengthBefore(std::string_view text, const Maybe& maybe, const IsOne& isOne) {
  std::size_t length = 0;
  while (length < text.size()) {
    Word word = 0;
    while (text.size() - length >= sizeof word) {
      std::memcpy(&word, text.data() + length, sizeof word);
      if (maybe(word)) break;
      length += sizeof word;
    }
    const std::size_t last = std::min(text.size(), length + sizeof word);
    for (; length < last; ++length) {
      if (isOne(text[length])) return length;
    }
  }
  return length;
}

}  // namespace

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
  return lengthBefore(
      text, [](Word word) { return (word & everyByte(0x80)) != 0; },
      [](char c) { return (c & 0x80) != 0; });
}

std::size_t lineLength(std::string_view text) {
  return lengthBefore(
      text,
      // A byte that is not above CR.
      [](Word word) { return ((word - everyByte('\r' + 1)) & ~word & everyByte(0x80)) != 0; },
      [](char c) { return c == '\r' || c == '\n'; });
}

bool contains8bit(std::string_view text) {
  return asciiLength(text) != text.size();
}

}  // namespace base
