// Encoded words (RFC 2047): header text that is not plain ASCII, in B or Q form. Pure functions.
// No word is longer than 75 characters, has a line end in it or splits a character.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "mail/mime/charset.h"

namespace kelvado {

inline constexpr std::size_t kMaxHeaderColumns = 76;  // RFC 2047 section 2

// Charsets whose text is written in B words; any other is written in Q words.
bool usesBWords(std::string_view charset);

// The text in words of the charset, folded with "\r\n " between words; empty means "utf-8", and so
// does a charset that is unknown or can't carry the text. `column` is where the first word will
// be. A byte-order mark of "utf-8" text is dropped; a text that is nothing but the mark yields no
// word. Left unchanged are text that already holds words of the form, and text of "us-ascii".
std::string encodeQWords(std::string_view utf8, std::string_view charset, std::size_t column = 0);
std::string encodeBWords(std::string_view utf8, std::string_view charset, std::size_t column = 0);
// In the form of the charset (usesBWords). Text without a byte of 0x80 or above stays as it is.
std::string encodeHeaderText(std::string_view utf8, std::string_view charset,
                             std::size_t column = 0);
// The same, but text that is all ASCII is encoded as well.
std::string encodeHeaderWords(std::string_view utf8, std::string_view charset, std::size_t column);

// Replaces every encoded word by its text, as UTF-8, and drops the white space between words. Words
// of an unknown charset stay as they are. The result may hold any character, a line break too.
std::string decodeHeaderText(std::string_view value);
// Whether that would change the value.
bool holdsEncodedWord(std::string_view value);

// A header value with the bytes that were read, as UTF-8: bytes that are not UTF-8 are in the
// charset, or in Windows-1252 where they cannot be; inside an encoded word they are in the word's
// own charset. The words stay encoded.
std::string headerAsUtf8(std::string_view raw, const Charset& charset);

}  // namespace kelvado
