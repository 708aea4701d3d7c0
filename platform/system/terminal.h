// The terminal that a program of the command line talks to.
#pragma once

#include <cstdio>
#include <string>

namespace platform {

// Whether the stream is a terminal that understands escape sequences, so that a program may draw.
bool isTerminal(std::FILE* stream);
// How many characters a line of the terminal holds; 0 when the stream is none or does not say.
int terminalWidth(std::FILE* stream);

// A line that is typed without being shown, without its end; false at the end of the input, or when
// standard input is no terminal.
bool readHiddenLine(std::string& line);

// From now on bytes are written to the stream as they are: no "\n" becomes another line end.
void writeBytesAsTheyAre(std::FILE* stream);

// While one lives, the terminal takes what is written to it for text in the ANSI code page, which
// all texts of this system are in. Its own code page is set again by the destructor, or when the
// user ends the program (Ctrl-C, the closed window). One at a time.
class AnsiTerminal {
 public:
  AnsiTerminal();
  ~AnsiTerminal();
  AnsiTerminal(const AnsiTerminal&) = delete;
  AnsiTerminal& operator=(const AnsiTerminal&) = delete;
};

}  // namespace platform
