#include "mail/mime/uu.h"

#include <algorithm>

#include "base/ascii.h"
#include "base/text.h"

namespace kelvado {
namespace {

constexpr std::size_t kBytesPerLine = 45;  // the length is one character, and 45 gives 60 more

char digit(unsigned value) {
  value &= 0x3F;
  return value == 0 ? '`' : static_cast<char>(value + ' ');  // a blank might be lost on the way
}

unsigned valueOf(char c) {
  return (static_cast<unsigned char>(c) - static_cast<unsigned char>(' ')) & 0x3F;
}

void appendLine(std::string_view bytes, std::string& out) {
  out.push_back(digit(static_cast<unsigned>(bytes.size())));
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const auto byteAt = [bytes](std::size_t at) {
      return at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0U;
    };
    const unsigned bits = (byteAt(i) << 16) | (byteAt(i + 1) << 8) | byteAt(i + 2);
    for (int shift = 18; shift >= 0; shift -= 6) out.push_back(digit(bits >> shift));
  }
  out.append("\r\n");
}

void decodeLine(std::string_view line, std::string& bytes) {
  std::size_t left = valueOf(line.front());
  line.remove_prefix(1);
  // Blanks at the end of the last group may be missing: they were zeros. Further bytes are not made
  // up, or a short text could become a long file.
  left = std::min(left, (line.size() + 3) / 4 * 3);
  const auto valueAt = [line](std::size_t at) { return at < line.size() ? valueOf(line[at]) : 0U; };
  for (std::size_t i = 0; left > 0; i += 4) {
    const unsigned bits =
        (valueAt(i) << 18) | (valueAt(i + 1) << 12) | (valueAt(i + 2) << 6) | valueAt(i + 3);
    const char group[] = {static_cast<char>(bits >> 16), static_cast<char>(bits >> 8),
                          static_cast<char>(bits)};
    const std::size_t count = std::min<std::size_t>(left, 3);
    bytes.append(group, count);
    left -= count;
  }
}

// "begin 644 name": the mode has three digits or more.
bool isBeginLine(std::string_view line, std::string_view& filename) {
  if (!line.starts_with("begin ")) return false;
  const std::size_t modeEnd = line.find_first_not_of("01234567", 6);
  if (modeEnd == std::string_view::npos || modeEnd < 9 || line[modeEnd] != ' ') return false;
  filename = base::trimmed(line.substr(modeEnd));
  return true;
}

}  // namespace

void Uu::encode(std::string_view bytes, StringBuffer& out) const {
  std::string& text = out.text();
  text.append("begin 666 ").append(base::withoutLineBreaks(filename_)).append("\r\n");
  for (; !bytes.empty(); bytes.remove_prefix(std::min(kBytesPerLine, bytes.size()))) {
    appendLine(bytes.substr(0, kBytesPerLine), text);
  }
  text.append("`\r\nend\r\n");
}

bool Uu::decode(std::string_view text, std::string& bytes, std::string* filename) {
  bytes.clear();
  std::string_view name;
  do {
    if (text.empty()) return false;
  } while (!isBeginLine(base::takeLine(text), name));
  if (filename != nullptr) *filename = name;
  while (!text.empty()) {
    const std::string_view line = base::takeLine(text);
    if (line == "end") break;
    if (!line.empty()) decodeLine(line, bytes);
  }
  return true;
}

}  // namespace kelvado
