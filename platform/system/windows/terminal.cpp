#include "platform/system/terminal.h"

#include <atomic>

#include <windows.h>
#include <fcntl.h>
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

int terminalWidth(std::FILE* stream) {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
  if (GetConsoleScreenBufferInfo(handle, &info) == 0) return 0;
  return info.srWindow.Right - info.srWindow.Left + 1;
}

bool readHiddenLine(std::string& line) {
  line.clear();
  DWORD before = 0;
  const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
  if (GetConsoleMode(input, &before) == 0) return false;
  SetConsoleMode(input, before & ~static_cast<DWORD>(ENABLE_ECHO_INPUT));
  int c = 0;
  while ((c = std::getchar()) != EOF && c != '\n') line += static_cast<char>(c);
  SetConsoleMode(input, before);
  return c != EOF;
}

void writeBytesAsTheyAre(std::FILE* stream) {
  std::fflush(stream);
  _setmode(_fileno(stream), _O_BINARY);
}

namespace {

std::atomic<UINT> consoleCodePageBefore = 0;  // 0: there is no console

void restoreCodePage() {
  if (const UINT before = consoleCodePageBefore.exchange(0); before != 0) {
    SetConsoleOutputCP(before);
  }
}

// Ctrl-C ends the program without destructors, in a thread of its own.
BOOL WINAPI restoreAtEnd(DWORD) {
  restoreCodePage();
  return FALSE;  // the next handler, which ends the process
}

}  // namespace

// A console's own code page is another one, that of DOS.
AnsiTerminal::AnsiTerminal() {
  consoleCodePageBefore = GetConsoleOutputCP();
  SetConsoleCtrlHandler(restoreAtEnd, TRUE);
  SetConsoleOutputCP(GetACP());
}

AnsiTerminal::~AnsiTerminal() {
  restoreCodePage();
  SetConsoleCtrlHandler(restoreAtEnd, FALSE);
}

}  // namespace platform
