// Encoded words: any header value can be read, and text comes back from the words it was put in.
#include <string>

#include "base/ascii.h"
#include "base/unicode.h"
#include "fuzz/fuzz.h"
#include "mail/mime/encoded_word.h"

using namespace kelvado;

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

void requireWords(const std::string& words, std::string_view text, std::size_t column) {
  // Where the field's name leaves no room, the words begin on a line of their own.
  require(decodeHeaderText(base::trimmed(words)) == text);
  require(words.find('\0') == std::string::npos);
  requireLines(std::string(column, ' ') + words, kMaxHeaderColumns);
  // No word splits a character.
  for (std::string_view rest = words; !rest.empty();) {
    const bool hasReplacement =
        decodeHeaderText(takeUpTo('\n', rest)).find(kReplacement) != std::string::npos;
    require(!hasReplacement || text.find(kReplacement) != std::string_view::npos);
  }
}

}  // namespace

// The first byte is the column.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t column = data[0] % kMaxHeaderColumns;
  const std::string_view text = textOf(data + 1, size - 1);
  decodeHeaderText(text);
  encodeHeaderText(text, "iso-8859-1", column);
  // Words stay words, and a byte-order mark is dropped: both intended.
  const bool comesBack = base::isValidUtf8(text) && text.find("?") == std::string_view::npos &&
                         !text.starts_with("\xEF\xBB\xBF");
  if (!comesBack) return 0;
  for (const char* charset : {"utf-8", "iso-8859-1", "shift_jis"}) {
    requireWords(encodeQWords(text, charset, column), text, column);
    requireWords(encodeBWords(text, charset, column), text, column);
  }
  return 0;
}
