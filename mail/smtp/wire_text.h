// What may go into a command of the mail session, and the text of a message in its form for DATA.
// Pure; used by the session and MessageText.
#pragma once

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

// A message text in its form for DATA: every line end CR LF, a dot behind a line feed doubled (one
// at the very beginning is not). The terminator is not part of it. Takes the text in any parts.
class DataEncoder {
 public:
  // Appends what comes next.
  void append(std::string_view text, std::string& out);
  // How many dots were doubled so far.
  std::uint64_t doubledDots() const { return doubledDots_; }

 private:
  bool afterLineEnd_ = false;
  bool afterCr_ = false;  // the last byte; an LF that follows belongs to it
  std::uint64_t doubledDots_ = 0;
};

}  // namespace kelvado
