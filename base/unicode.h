// UTF-8 and UTF-16. Pure functions; may be used by several threads. Nothing here fails on malformed
// input: each maximal ill-formed part of UTF-8, and a lone surrogate of UTF-16, becomes one U+FFFD,
// as the Unicode standard recommends (section 3.9), so the same bytes always give the same text.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace base {

std::u16string utf8ToUtf16(std::string_view text);
std::string utf16ToUtf8(std::u16string_view text);

bool isValidUtf8(std::string_view text);

// How many bytes the character at the start of `text` has, which is not empty; of malformed text 1.
std::size_t utf8CharacterLength(std::string_view text);

// The start of valid UTF-8: as much as `limit` bytes hold without splitting a character.
std::string_view utf8Start(std::string_view text, std::size_t limit);

}  // namespace base
