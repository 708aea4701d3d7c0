// The terminal that a program of the command line talks to.
#pragma once

#include <cstdio>

namespace platform {

// For programs that draw: it is one, and understands escape sequences.
bool isTerminal(std::FILE* stream);

// While one lives, the terminal takes what is written to it for text in the ANSI code page, which
// all texts of this system are in. One at a time.
class AnsiTerminal {
 public:
  AnsiTerminal();
  ~AnsiTerminal();
  AnsiTerminal(const AnsiTerminal&) = delete;
  AnsiTerminal& operator=(const AnsiTerminal&) = delete;

 private:
  [[maybe_unused]] unsigned codePageBefore_ = 0;
};

}  // namespace platform
