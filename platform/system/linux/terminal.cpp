#include "platform/system/terminal.h"

#include <unistd.h>

namespace platform {

bool isTerminal(std::FILE* stream) {
  return isatty(fileno(stream)) == 1;
}

// Terminals are in UTF-8 here, too.
AnsiTerminal::AnsiTerminal() = default;
AnsiTerminal::~AnsiTerminal() = default;

}  // namespace platform
