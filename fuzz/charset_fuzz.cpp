// Charsets: bytes of any charset give valid UTF-8, and text that was converted without loss
// converts back to the same text.
#include <string>

#include "base/unicode.h"
#include "fuzz/fuzz.h"
#include "mail/mime/charset.h"

using namespace kelvado;

// The first line names the charset.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view bytes = textOf(data, size);
  const Charset charset(takeUpTo('\n', bytes));
  require(base::isValidUtf8(repairedUtf8(bytes)));

  std::string utf8;
  std::string back;
  bool lossy = false;
  EncodingConvert::fromUtf8(charset, bytes, back);
  if (!EncodingConvert::toUtf8(charset, bytes, utf8, &lossy)) {
    require(utf8.empty());
    return 0;
  }
  require(base::isValidUtf8(utf8));
  if (lossy) return 0;
  // Characters that switch the charset, or make one that does, when they stand in the text itself.
  if (utf8.find_first_of("\x0E\x0F\x1B~+") != std::string::npos) return 0;
  require(EncodingConvert::fromUtf8(charset, utf8, back, &lossy));
  if (lossy) return 0;  // some tables read more than they write
  std::string again;
  require(EncodingConvert::toUtf8(charset, back, again, &lossy) && again == utf8);
  return 0;
}
