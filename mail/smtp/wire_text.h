// What may go on the wire and what may go into the log, for the mail session; and the body of a
// message as DATA wants it. Pure; used by the session only.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kelvado {

// The value cannot end or prolong a command line: no control characters (CR, LF and NUL among
// them).
bool isSafeText(std::string_view value);

// Safe, and one word: no blanks either. For host names and command parameters.
bool isSafeWord(std::string_view value);

// Safe between '<' and '>', and one address, of a length that a command line can carry.
bool isSafeAddress(std::string_view address);

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
