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

// From now on bytes are written to the stream as they are: no "\n" becomes another line end, and no
// character another one.
void writeBytesAsTheyAre(std::FILE* stream);

// While one lives, standard output and standard error take text in the ANSI code page, which all
// texts of this system are in. A terminal shows it as such; its own code page is set again by the
// destructor, or when the user ends the program (Ctrl-C, the closed window). What goes to a file or
// a pipe is converted to the code page of the terminal, if there is one, as the system's own
// commands write it. One at a time.
class AnsiTerminal {
 public:
  AnsiTerminal();
  // Writes what is buffered for standard output. False when not all of it could be written.
  bool finish();
  ~AnsiTerminal();
  AnsiTerminal(const AnsiTerminal&) = delete;
  AnsiTerminal& operator=(const AnsiTerminal&) = delete;
};

}  // namespace platform
