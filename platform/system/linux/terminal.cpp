#include "platform/system/terminal.h"

#include <sys/ioctl.h>
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

void writeBytesAsTheyAre(std::FILE*) {}

// Terminals are in UTF-8 here, too.
AnsiTerminal::AnsiTerminal() = default;
AnsiTerminal::~AnsiTerminal() = default;

}  // namespace platform
