#include "base/unicode.h"

#include <algorithm>

#include "base/ascii.h"

namespace base {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

struct Decoded {
  char32_t character = kReplacement;
  std::size_t length = 1;  // bytes used
  bool valid = false;
};

bool isContinuation(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}

// The character at the start of `text`, which is not empty.
Decoded decodeUtf8(std::string_view text) {
  const auto byteAt = [text](std::size_t i) {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : static_cast<unsigned char>(0);
  };
  const unsigned char lead = byteAt(0);
  if (lead < 0x80) return {lead, 1, true};
  std::size_t length = 0;
  if (lead >= 0xC2 && lead <= 0xDF) length = 2;
  if (lead >= 0xE0 && lead <= 0xEF) length = 3;
  if (lead >= 0xF0 && lead <= 0xF4) length = 4;
  if (length == 0) return {};
  const unsigned char second = byteAt(1);
  // The second byte's range rules out overlong forms, surrogates and what is past U+10FFFF.
  if (!isContinuation(second) || (lead == 0xE0 && second < 0xA0) ||
      (lead == 0xED && second > 0x9F) || (lead == 0xF0 && second < 0x90) ||
      (lead == 0xF4 && second > 0x8F)) {
    return {};
  }
  char32_t character = lead & (0xFFU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    if (!isContinuation(byteAt(i))) return {kReplacement, i, false};
    character = (character << 6) | (byteAt(i) & 0x3FU);
  }
  return {character, length, true};
}

void appendUtf8(char32_t character, std::string& out) {
  const auto tail = [character](int shift) {
    return static_cast<char>(0x80 | ((character >> shift) & 0x3F));
  };
  if (character < 0x80) {
    out += static_cast<char>(character);
  } else if (character < 0x800) {
    out += static_cast<char>(0xC0 | (character >> 6));
    out += tail(0);
  } else if (character < 0x10000) {
    out += static_cast<char>(0xE0 | (character >> 12));
    out += tail(6);
    out += tail(0);
  } else {
    out += static_cast<char>(0xF0 | (character >> 18));
    out += tail(12);
    out += tail(6);
    out += tail(0);
  }
}

bool isHighSurrogate(char16_t unit) {
  return (unit & 0xFC00) == 0xD800;
}
bool isLowSurrogate(char16_t unit) {
  return (unit & 0xFC00) == 0xDC00;
}

}  // namespace

std::u16string utf8ToUtf16(std::string_view text) {
  const std::string_view ascii = text.substr(0, asciiLength(text));
  text.remove_prefix(ascii.size());
  std::u16string out(ascii.begin(), ascii.end());
  out.reserve(ascii.size() + text.size());
  while (!text.empty()) {
    const Decoded decoded = decodeUtf8(text);
    if (decoded.character < 0x10000) {
      out += static_cast<char16_t>(decoded.character);
    } else {
      out += static_cast<char16_t>(0xD800 + ((decoded.character - 0x10000) >> 10));
      out += static_cast<char16_t>(0xDC00 + ((decoded.character - 0x10000) & 0x3FF));
    }
    text.remove_prefix(decoded.length);
  }
  return out;
}

std::string utf16ToUtf8(std::u16string_view text) {
  const auto* const ascii =
      std::find_if(text.begin(), text.end(), [](char16_t unit) { return unit >= 0x80; });
  std::string out(text.begin(), ascii);
  out.reserve(text.size());
  for (std::size_t i = out.size(); i < text.size(); ++i) {
    char32_t character = text[i];
    if (isHighSurrogate(text[i]) && i + 1 < text.size() && isLowSurrogate(text[i + 1])) {
      character = 0x10000 + ((character & 0x3FF) << 10) + (text[++i] & 0x3FFU);
    } else if (isHighSurrogate(text[i]) || isLowSurrogate(text[i])) {
      character = kReplacement;
    }
    appendUtf8(character, out);
  }
  return out;
}

bool isValidUtf8(std::string_view text) {
  for (text.remove_prefix(asciiLength(text)); !text.empty();
       text.remove_prefix(asciiLength(text))) {
    const Decoded decoded = decodeUtf8(text);
    if (!decoded.valid) return false;
    text.remove_prefix(decoded.length);
  }
  return true;
}

std::size_t utf8CharacterLength(std::string_view text) {
  const Decoded decoded = decodeUtf8(text);
  return decoded.valid ? decoded.length : 1;
}

std::string_view utf8Start(std::string_view text, std::size_t limit) {
  if (limit >= text.size()) return text;
  while (limit > 0 && isContinuation(static_cast<unsigned char>(text[limit]))) --limit;
  return text.substr(0, limit);
}

}  // namespace base
