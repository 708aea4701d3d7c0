// What may go into a command of the mail session, and the text of a message in its form for DATA.
// Pure; used by the session only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kelvado {

// The value cannot end or extend a command line: no control characters (CR, LF and NUL among
// them).
bool isSafeText(std::string_view value);

// Safe, and one word: no blanks either. For host names and command parameters.
bool isSafeWord(std::string_view value);

// Safe between '<' and '>', and one address, of a length that a command line can carry.
bool isSafeAddress(std::string_view address);

// The size of a message text in bytes as DataEncoder gives it.
struct DataSize {
  std::uint64_t message = 0;      // as servers count it (RFC 1870): without the doubled dots
  std::uint64_t doubledDots = 0;  // on the wire in addition
};
DataSize dataSize(std::string_view text);

// A message text piece by piece in its form for DATA: every line end CR LF, a dot behind a line
// feed doubled (one at the very beginning is not). The terminator is not part of it. Keeps a view
// of the text only, so that a message of many megabytes is not held twice.
class DataEncoder {
 public:
  explicit DataEncoder(std::string_view text) : rest_(text) {}

  // The next piece of about `size` bytes; false at the end, with `piece` empty.
  bool next(std::size_t size, std::string& piece);

 private:
  std::string_view rest_;
  bool afterLineFeed_ = false;
};

}  // namespace kelvado
