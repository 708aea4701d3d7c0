#include "platform/system/terminal.h"

#include <windows.h>
#include <io.h>

namespace platform {

bool isTerminal(std::FILE* stream) {
  // Not _isatty: that takes the NUL device for a terminal, too. A console that does not understand
  // escape sequences is none either, for programs that draw.
  DWORD mode = 0;
  const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
  return GetConsoleMode(handle, &mode) != 0 &&
         SetConsoleMode(handle, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

// A console's own code page is another one, of the times before Windows.
AnsiTerminal::AnsiTerminal() : codePageBefore_(GetConsoleOutputCP()) {
  SetConsoleOutputCP(GetACP());
}

AnsiTerminal::~AnsiTerminal() {
  if (codePageBefore_ != 0) SetConsoleOutputCP(codePageBefore_);
}

}  // namespace platform
