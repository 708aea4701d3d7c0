// Text between UTF-8, UTF-16 and code pages. "ANSI" is the code page of the process; where the
// system has none of its own it is UTF-8. Pure functions; may be used by several threads. Nothing
// here fails on malformed input: what cannot be carried over becomes U+FFFD or '?', except where a
// function says so.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

inline constexpr std::uint32_t kCodePageUtf8 = 65001;

// The ANSI code page. Where that is UTF-8, a text that is not valid UTF-8 is taken as Windows-1252,
// in which older systems wrote their lists: different bytes stay different names.
std::u16string ansiToUtf16(std::string_view text);
std::string utf16ToAnsi(std::u16string_view text);

// Where the ASCII character `c` stands in an ANSI text, at or behind the start of a character
// `from`; npos when it does not. A second byte of a double-byte character is none, whatever its
// number.
std::size_t findInAnsi(std::string_view text, char c, std::size_t from = 0);

// The start of an ANSI text: as much as `limit` bytes hold without splitting a character.
std::string_view ansiStart(std::string_view text, std::size_t limit);

// Text in a Windows code page to and from UTF-8. False, with `out` empty, when the system cannot
// convert that code page; `lossy` (may be null) is set when a character had to be replaced.
bool codePageToUtf8(std::uint32_t codePage, std::string_view text, std::string& out,
                    bool* lossy = nullptr);
bool utf8ToCodePage(std::uint32_t codePage, std::string_view utf8, std::string& out,
                    bool* lossy = nullptr);

}  // namespace platform
