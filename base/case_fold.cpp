// Lower-case mapping of the scripts that logon names are written in; see the header.
#include "base/case_fold.h"

#include <cstddef>

#include "base/ascii.h"

namespace base {
namespace {

// Latin Extended-A: capitals and small letters alternate, in three stretches that differ in whether
// the capital is even or odd. The dotted capital I and the long s have no one-to-one partner here.
char32_t lowerLatinExtended(char32_t c) {
  if (c == 0x130 || c == 0x17F) return c;
  if (c == 0x178) return 0xFF;
  bool capitalIsOdd = (c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E);
  bool paired = c != 0x138 && c != 0x149;
  return paired && (c % 2 == 1) == capitalIsOdd ? c + 1 : c;
}

char32_t lowerGreek(char32_t c) {
  if (c == 0x386) return 0x3AC;
  if (c >= 0x388 && c <= 0x38A) return c + 37;
  if (c == 0x38C) return 0x3CC;
  if (c == 0x38E || c == 0x38F) return c + 63;
  return c >= 0x391 && c <= 0x3AB && c != 0x3A2 ? c + 32 : c;
}

// Characters of two UTF-8 bytes, U+0080 to U+07FF.
char32_t lowerTwoByte(char32_t c) {
  if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return c + 32;
  if (c >= 0x100 && c <= 0x17F) return lowerLatinExtended(c);
  if (c >= 0x386 && c <= 0x3AB) return lowerGreek(c);
  if (c >= 0x400 && c <= 0x40F) return c + 80;
  if (c >= 0x410 && c <= 0x42F) return c + 32;
  return c;
}

bool isContinuation(char c) {
  return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

}  // namespace

std::string foldCase(std::string_view text) {
  if (!contains8bit(text)) return lowered(text);
  std::string folded(text);
  for (std::size_t i = 0; i < folded.size(); ++i) {
    auto lead = static_cast<unsigned char>(folded[i]);
    if (lead < 0x80) {
      folded[i] = lowerAscii(folded[i]);
    } else if (lead >= 0xC2 && lead <= 0xDF && i + 1 < folded.size() &&
               isContinuation(folded[i + 1])) {
      char32_t c = (lead & 0x1FU) << 6U | (static_cast<unsigned char>(folded[i + 1]) & 0x3FU);
      char32_t lower = lowerTwoByte(c);  // never leaves the two-byte characters
      folded[i] = static_cast<char>(0xC0U | lower >> 6U);
      folded[++i] = static_cast<char>(0x80U | (lower & 0x3FU));
    }
  }
  return folded;
}

}  // namespace base
