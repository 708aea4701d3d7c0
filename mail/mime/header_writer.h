// How a header field leaves: folded, its non-ASCII text in encoded words (RFC 5322 section 2.2.3,
// RFC 2047). Pure. Used by the MIME writer.
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

// Appends the field with its line end. `messageCharset` decides, for address fields, whether names
// are encoded: those of a "us-ascii" message are not, whatever they hold.
void appendHeaderField(const MimeField& field, std::string_view messageCharset, std::string& out);

}  // namespace kelvado
