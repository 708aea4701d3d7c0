// Base64, quoted-printable and uuencode: encoded bytes decode to the same bytes, no line is too
// long, and decoders accept any text.
#include <string>

#include "fuzz/fuzz.h"
#include "mail/mime/base64.h"
#include "mail/mime/quoted_printable.h"
#include "mail/mime/uu.h"

using namespace kelvado;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input = textOf(data, size);
  std::string decoded;
  base64Decode(input, decoded);
  require(decoded.size() <= input.size());
  require(quotedPrintableDecode(input).size() <= input.size());
  Uu::decode(input, decoded);

  std::string lines;
  base64AppendLines(input, kBodyLineLength, lines);
  require(lines.size() == base64LinesSize(size, kBodyLineLength));
  requireLines(lines, kBodyLineLength);
  require(base64Decode(lines, decoded) && decoded == input);

  lines.clear();
  quotedPrintableAppend(input, LineEnds::Exact, lines);
  requireLines(lines, kBodyLineLength);
  require(quotedPrintableDecode(lines) == input);

  StringBuffer uuencoded;
  Uu("file").encode(input, uuencoded);
  require(Uu::decode(uuencoded.text(), decoded) && decoded == input);
  return 0;
}
