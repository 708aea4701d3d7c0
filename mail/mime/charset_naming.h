// The names of character sets: from Windows code-page number to the name that the library writes,
// and back from the names that others write. Pure look-ups.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "mail/core/string_buffer.h"

namespace kelvado {

inline constexpr std::uint32_t kNoCodePage = 0;
inline constexpr std::uint32_t kUsAsciiCodePage = 20127;
// ISO 8859-10, -14 and -16: the numbers that are free for them in the row of the others. The table
// of names does not have them, and no system converts them by number (latin_charsets.h does).
inline constexpr std::uint32_t kLatin6CodePage = 28600;
inline constexpr std::uint32_t kLatin8CodePage = 28604;
inline constexpr std::uint32_t kLatin10CodePage = 28606;

class CharsetNaming {
 public:
  // False, with `name` untouched, for a code page that is not in the table.
  static bool getName(std::uint32_t codePage, StringBuffer& name);

  // kNoCodePage for a name that nothing is known by. Case, "_" for "-" and many aliases are
  // accepted; where two code pages share a name it is the first one of the table's two.
  static std::uint32_t getCodePage(std::string_view name);
};

}  // namespace kelvado
