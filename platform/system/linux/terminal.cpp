#include "platform/system/terminal.h"

#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace platform {

bool isTerminal(std::FILE* stream) {
  return isatty(fileno(stream)) == 1;
}

int terminalWidth(std::FILE* stream) {
  winsize size{};
  if (ioctl(fileno(stream), TIOCGWINSZ, &size) != 0) return 0;
  return size.ws_col;
}

bool readHiddenLine(std::string& line) {
  line.clear();
  termios before{};
  if (tcgetattr(STDIN_FILENO, &before) != 0) return false;
  termios hidden = before;
  hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
  int c = 0;
  while ((c = std::getchar()) != EOF && c != '\n') line += static_cast<char>(c);
  tcsetattr(STDIN_FILENO, TCSAFLUSH, &before);
  return c != EOF;
}

void writeBytesAsTheyAre(std::FILE*) {}

// Terminals are in UTF-8 here, too.
AnsiTerminal::AnsiTerminal() = default;
AnsiTerminal::~AnsiTerminal() = default;
bool AnsiTerminal::finish() {
  return std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
}

}  // namespace platform
