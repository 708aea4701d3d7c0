// Quoted-printable (RFC 2045 section 6.7) for bodies. Lines have at most 76 characters.
// Pure functions; time and memory grow with the input.
#pragma once

#include <string>
#include <string_view>

#include "mail/mime/encoding_base.h"

namespace kelvado {

enum class LineEnds {
  AsLines,  // CR LF, LF and CR each end a line
  Exact,    // only CR LF does; a CR or LF alone is encoded, so that the bytes come back the same
};

void quotedPrintableAppend(std::string_view bytes, LineEnds lineEnds, std::string& out);

// Decodes what there is: a '=' that starts nothing valid stays as it is; blanks at the end of a
// line are dropped, as the RFC asks.
std::string quotedPrintableDecode(std::string_view text);

class QuotedPrintable : public EncodingBase {
 public:
  void encode(std::string_view bytes, StringBuffer& out) const override {
    quotedPrintableAppend(bytes, LineEnds::AsLines, out.text());
  }
};

}  // namespace kelvado
