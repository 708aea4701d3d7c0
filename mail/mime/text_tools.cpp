#include "mail/mime/text_tools.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace kelvado {

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

int replaceAll(std::string& text, std::string_view from, std::string_view to) {
  if (from.empty()) return 0;
  int count = 0;
  std::size_t done = 0;
  std::string out;
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, done)) {
    out.append(text, done, at - done).append(to);
    done = at + from.size();
    ++count;
  }
  if (count == 0) return 0;
  out.append(text, done, std::string::npos);
  text.swap(out);
  return count;
}

std::string withoutLineBreaks(std::string_view text) {
  std::string out(text);
  std::erase_if(out, [](char c) { return c == '\n' || c == '\r' || c == '\0'; });
  return out;
}

void appendWithCrLf(std::string_view text, std::string& out) {
  while (!text.empty()) {
    const std::size_t end = text.find_first_of("\r\n");
    out.append(text.substr(0, end));
    if (end == std::string_view::npos) return;
    out.append("\r\n");
    const bool crLf = text.substr(end, 2) == "\r\n";
    text.remove_prefix(end + (crLf ? 2 : 1));
  }
}

}  // namespace kelvado
