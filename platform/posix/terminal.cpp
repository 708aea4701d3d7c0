#include "platform/terminal.h"

#include <unistd.h>

namespace platform {

bool isTerminal(std::FILE* stream) {
  return isatty(fileno(stream)) == 1;
}

}  // namespace platform
