// Code pages by the conversion functions of Windows. Those that Windows names but does not convert
// (ASCII without loss of the top bit, UTF-16, UTF-32) are done here.
#include "platform/text/code_page.h"

#include <algorithm>
#include <climits>
#include <cstddef>

#include <windows.h>

#include "base/unicode.h"
#include "platform/text/windows/wide_text.h"

namespace platform {
namespace {

constexpr UINT kWindows1252 = 1252;
constexpr UINT kAscii = 20127;

std::u16string narrowed(const std::wstring& text) {
  return std::u16string(text.begin(), text.end());
}

// False with the reason in GetLastError when the text, or the code page with these flags, does not
// convert.
bool toUtf16(UINT codePage, DWORD flags, std::string_view text, std::wstring& out) {
  out.clear();
  if (text.empty()) return true;
  if (text.size() > INT_MAX) return false;
  const int size = static_cast<int>(text.size());
  const int needed = MultiByteToWideChar(codePage, flags, text.data(), size, nullptr, 0);
  if (needed <= 0) return false;
  out.resize(static_cast<std::size_t>(needed));
  return MultiByteToWideChar(codePage, flags, text.data(), size, out.data(), needed) == needed;
}

// Likewise. `replaced` (null where the code page does not report it) is set when a character had to
// be replaced.
bool fromUtf16(UINT codePage, DWORD flags, const std::wstring& text, std::string& out,
               bool* replaced) {
  out.clear();
  if (text.empty()) return true;
  if (text.size() > INT_MAX) return false;
  const int size = static_cast<int>(text.size());
  BOOL usedDefault = FALSE;
  BOOL* const report = replaced != nullptr ? &usedDefault : nullptr;
  const int needed =
      WideCharToMultiByte(codePage, flags, text.data(), size, nullptr, 0, nullptr, report);
  if (needed <= 0) return false;
  out.resize(static_cast<std::size_t>(needed));
  const int written =
      WideCharToMultiByte(codePage, flags, text.data(), size, out.data(), needed, nullptr, report);
  if (usedDefault != FALSE) *replaced = true;
  return written == needed;
}

// A code page whose characters are numbers of `size` bytes.
struct UnitFormat {
  std::uint32_t codePage;
  std::size_t size;
  bool bigEndian;
};

constexpr UnitFormat kUnitFormats[] = {
    {kAscii, 1, false}, {1200, 2, false}, {1201, 2, true}, {65005, 4, false}, {65006, 4, true}};

const UnitFormat* findUnitFormat(std::uint32_t codePage) {
  const auto* found = std::find_if(std::begin(kUnitFormats), std::end(kUnitFormats),
                                   [=](const UnitFormat& f) { return f.codePage == codePage; });
  return found == std::end(kUnitFormats) ? nullptr : found;
}

std::uint32_t readUnit(const UnitFormat& format, std::string_view bytes) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < format.size; ++i) {
    const std::size_t from = format.bigEndian ? i : format.size - 1 - i;
    value = value << 8 | static_cast<unsigned char>(bytes[from]);
  }
  return value;
}

void writeUnit(const UnitFormat& format, std::uint32_t value, std::string& out) {
  for (std::size_t i = 0; i < format.size; ++i) {
    const std::size_t shift = format.bigEndian ? format.size - 1 - i : i;
    out += static_cast<char>(value >> (8 * shift) & 0xFF);
  }
}

bool isSurrogate(std::uint32_t value) {
  return value >= 0xD800 && value <= 0xDFFF;
}

void appendCharacter(std::uint32_t character, std::u16string& out) {
  if (character < 0x10000) {
    out += static_cast<char16_t>(character);
  } else {
    out += static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10));
    out += static_cast<char16_t>(0xDC00 + ((character - 0x10000) & 0x3FF));
  }
}

// True when everything could be carried over.
bool decodeUnits(const UnitFormat& format, std::string_view text, std::u16string& out) {
  bool whole = text.size() % format.size == 0;
  for (; text.size() >= format.size; text.remove_prefix(format.size)) {
    std::uint32_t character = readUnit(format, text);
    const bool valid = format.size == 1   ? character < 0x80
                       : format.size == 2 ? true
                                          : character <= 0x10FFFF && !isSurrogate(character);
    if (!valid) character = 0xFFFD;
    whole = whole && valid;
    appendCharacter(character, out);
  }
  if (!text.empty()) out += u'\uFFFD';
  return whole;
}

bool encodeUnits(const UnitFormat& format, const std::u16string& text, std::string& out) {
  bool whole = true;
  for (std::size_t i = 0; i < text.size(); ++i) {
    std::uint32_t value = text[i];
    if (format.size != 2 && isSurrogate(value) && i + 1 < text.size()) {
      value = 0x10000 + ((value & 0x3FF) << 10) + (text[++i] & 0x3FFU);
    }
    if (format.size == 1 && value >= 0x80) {
      value = '?';
      whole = false;
    }
    writeUnit(format, value, out);
  }
  return whole;
}

// Bytes of the ANSI character that begins with this one, where it is not UTF-8.
std::size_t characterSize(char first) {
  return IsDBCSLeadByte(static_cast<BYTE>(first)) != FALSE ? 2 : 1;
}

}  // namespace

std::u16string ansiToUtf16(std::string_view text) {
  if (GetACP() == kCodePageUtf8 && base::isValidUtf8(text)) return base::utf8ToUtf16(text);
  std::wstring wide;
  toUtf16(GetACP() == kCodePageUtf8 ? kWindows1252 : CP_ACP, 0, text, wide);
  return narrowed(wide);
}

std::string utf16ToAnsi(std::u16string_view text) {
  if (GetACP() == kCodePageUtf8) return base::utf16ToUtf8(text);
  // Without best fits, which would turn a name into a similar one: another account's. A "?" is in
  // no account's name.
  std::string out;
  fromUtf16(CP_ACP, WC_NO_BEST_FIT_CHARS, toWide(text), out, nullptr);
  return out;
}

std::size_t findInAnsi(std::string_view text, char c, std::size_t from) {
  for (std::size_t at = from; at < text.size(); at += characterSize(text[at])) {
    if (text[at] == c) return at;
  }
  return std::string_view::npos;
}

std::string_view ansiStart(std::string_view text, std::size_t limit) {
  if (GetACP() == kCodePageUtf8 && base::isValidUtf8(text)) return base::utf8Start(text, limit);
  if (limit >= text.size()) return text;
  std::size_t end = 0;
  for (;;) {
    const std::size_t size = characterSize(text[end]);
    if (end + size > limit) return text.substr(0, end);
    end += size;
  }
}

bool codePageToUtf8(std::uint32_t codePage, std::string_view text, std::string& out, bool* lossy) {
  out.clear();
  bool replaced = false;
  if (codePage == kCodePageUtf8) {
    replaced = !base::isValidUtf8(text);
    out = replaced ? base::utf16ToUtf8(base::utf8ToUtf16(text)) : std::string(text);
  } else if (const UnitFormat* format = findUnitFormat(codePage); format != nullptr) {
    std::u16string decoded;
    replaced = !decodeUnits(*format, text, decoded);
    out = base::utf16ToUtf8(decoded);
    replaced = replaced || base::utf8ToUtf16(out) != decoded;  // a lone surrogate
  } else {
    if (codePage == CP_ACP || IsValidCodePage(codePage) == 0) return false;
    std::wstring wide;
    if (!toUtf16(codePage, MB_ERR_INVALID_CHARS, text, wide)) {
      replaced = GetLastError() == ERROR_NO_UNICODE_TRANSLATION;
      // Some code pages take no flags; of those it is not known whether something was replaced.
      if (!toUtf16(codePage, 0, text, wide)) return false;
    }
    out = base::utf16ToUtf8(narrowed(wide));
  }
  if (replaced && lossy != nullptr) *lossy = true;
  return true;
}

bool utf8ToCodePage(std::uint32_t codePage, std::string_view utf8, std::string& out, bool* lossy) {
  out.clear();
  const std::u16string text = base::utf8ToUtf16(utf8);
  bool replaced = !base::isValidUtf8(utf8);
  if (codePage == kCodePageUtf8) {
    out = base::utf16ToUtf8(text);
  } else if (const UnitFormat* format = findUnitFormat(codePage); format != nullptr) {
    replaced = !encodeUnits(*format, text, out) || replaced;
  } else {
    if (codePage == CP_ACP || IsValidCodePage(codePage) == 0) return false;
    const std::wstring wide = toWide(text);
    if (!fromUtf16(codePage, WC_NO_BEST_FIT_CHARS, wide, out, &replaced) &&
        !fromUtf16(codePage, 0, wide, out, nullptr)) {
      out.clear();
      return false;
    }
  }
  if (replaced && lossy != nullptr) *lossy = true;
  return true;
}

}  // namespace platform
