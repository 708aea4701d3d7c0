#include "platform/text/text_lines.h"

#include <algorithm>

#include "base/ascii.h"
#include "base/text.h"
#include "base/unicode.h"
#include "platform/text/code_page.h"

namespace platform {
namespace {

std::size_t utf16Units(std::string_view utf8) {
  std::size_t units = 0;
  for (const char c : utf8) {
    const auto byte = static_cast<unsigned char>(c);
    const bool continuation = (byte & 0xC0) == 0x80;
    units += (continuation ? 0U : 1U) + (byte >= 0xF0 ? 1U : 0U);
  }
  return units;
}

// Behind the next line feed at or after `offset`.
std::size_t findLineEnd(std::string_view bytes, std::size_t offset, bool utf16) {
  for (;;) {
    const std::size_t feed = bytes.find('\n', offset);
    if (feed == std::string_view::npos) return bytes.size();
    if (!utf16) return feed + 1;
    // A file in UTF-16 begins with its byte order mark, so its units start at even offsets.
    if (feed % 2 == 0 && feed + 1 < bytes.size() && bytes[feed + 1] == '\0') return feed + 2;
    offset = feed + 1;
  }
}

}  // namespace

bool TextLines::next() {
  if (next_ >= bytes_.size()) return false;
  begin_ = next_;
  next_ = findLineEnd(bytes_, begin_, utf16_);
  ++number_;
  decode(bytes_.substr(begin_, next_ - begin_));
  const std::string_view whole = text_;
  if (text_.ends_with('\n')) text_.remove_suffix(1);
  if (whole.size() > text_.size() && text_.ends_with('\r')) text_.remove_suffix(1);
  lineEnd_ = whole.substr(text_.size());
  return true;
}

void TextLines::decode(std::string_view raw) {
  unit_ = utf16_ ? 2 : base::isValidUtf8(raw) ? 0 : 1;
  if (unit_ == 0) {
    text_ = raw;
    return;
  }
  decoded_ = utf16_ ? utf16LeToUtf8(raw) : ansiToUtf8(raw);
  text_ = decoded_;
}

std::size_t TextLines::offsetOf(std::size_t position) const {
  return begin_ + (unit_ == 0 ? position : unit_ * utf16Units(text_.substr(0, position)));
}

std::string encodeText(std::string_view utf8, bool utf16) {
  if (!utf16) return std::string(utf8);
  std::string bytes;
  bytes.reserve(utf8.size() * 2);
  for (const char16_t unit : base::utf8ToUtf16(utf8)) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

std::string utf16LeToUtf8(std::string_view bytes) {
  std::u16string units(bytes.size() / 2, u'\0');
  for (std::size_t i = 0; i < units.size(); ++i) {
    units[i] = static_cast<char16_t>(static_cast<unsigned char>(bytes[2 * i]) |
                                     static_cast<unsigned char>(bytes[2 * i + 1]) << 8);
  }
  return base::utf16ToUtf8(units);
}

std::string ansiToUtf8(std::string_view ansi) {
  if (!base::contains8bit(ansi)) return std::string(ansi);  // the same in every code page
  return base::utf16ToUtf8(ansiToUtf16(ansi));
}

std::string utf8ToAnsi(std::string_view utf8) {
  if (!base::contains8bit(utf8)) return std::string(utf8);
  return utf16ToAnsi(base::utf8ToUtf16(utf8));
}

std::string loggableAnsiLine(std::string_view ansi) {
  return utf8ToAnsi(base::loggableLine(ansiToUtf8(ansi)));
}

}  // namespace platform
