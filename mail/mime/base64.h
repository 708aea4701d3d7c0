// Base64 (RFC 2045 section 6.8, RFC 4648): bodies, B words and the SMTP authentication exchange.
// Pure functions; time and memory grow with the input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "mail/mime/encoding_base.h"

namespace kelvado {

// On one line, padded, with no line break at all.
std::string base64Encode(std::string_view bytes);

// Appends lines: CR LF after the group of four characters that brings a line to `lineLength` or
// more, and CR LF at the end (of nothing, too).
void base64AppendLines(std::string_view bytes, std::uint32_t lineLength, std::string& out);

// How many characters base64AppendLines appends.
std::size_t base64LinesSize(std::size_t bytes, std::uint32_t lineLength);

// Decodes as far as it can: characters outside the alphabet are stepped over, '=' ends the text.
// True when there was nothing but the alphabet, white space and right padding.
bool base64Decode(std::string_view text, std::string& bytes);

// Public API; the library calls the functions above.
class Base64 : public EncodingBase {
 public:
  explicit Base64(std::uint32_t lineLength = kBodyLineLength) : EncodingBase(lineLength) {}
  void encode(std::string_view bytes, StringBuffer& out) const override {
    base64AppendLines(bytes, lineLength(), out.text());
  }
};

}  // namespace kelvado
