// A header field as it is written: folded, its non-ASCII text in encoded words (RFC 5322 section
// 2.2.3, RFC 2047). Pure. Used by the MIME writer.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "mail/mime/mime_header.h"

namespace kelvado {

// RFC 5322 section 2.1.1, without the CR LF. No line that is written is longer.
inline constexpr std::size_t kMaxLineOctets = 998;

// Fields whose value is a list of addresses.
bool isAddressField(std::string_view name);

// Appends the field with its line end. In a message with the charset "us-ascii", names of addresses
// that were set are not encoded, whatever they hold; names that were read are.
void appendHeaderField(const MimeField& field, std::string_view messageCharset, std::string& out);

}  // namespace kelvado
