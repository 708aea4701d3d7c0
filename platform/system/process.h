// This process, and the errors of its system calls, as the service's entry and control need them.
// May be used by several threads.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/system/win_error.h"

namespace platform {

class Process {
 public:
  virtual ~Process() = default;
  // The error of the calling thread's last call that failed (GetLastError).
  virtual WinError lastError() = 0;
  // The system's text for an error, inserts ignored, with the line end ("\r\n") that it has
  // (FormatMessageA). Empty when the system has none.
  virtual std::string errorMessage(WinError error) = 0;
  // The full path of the running program in the ANSI code page, at most 511 bytes. Empty, with the
  // last error set, on failure; a path that the code page cannot write is one.
  virtual std::string imagePath() = 0;
  // Ends the process and does not return (ExitProcess). What is buffered for standard output may be
  // lost.
  virtual void exit(std::uint32_t code) = 0;
  // The same at once, whatever its other threads are doing: one that is frozen may hold a lock that
  // an orderly end would wait for.
  virtual void terminate(std::uint32_t code) = 0;
};

// Never destroyed.
Process& systemProcess();

// The arguments behind the program's name, in the ANSI code page; `argc` and `argv` are main's. A
// character that the code page lacks becomes a "?", never a similar one: that could name another
// account or file.
std::vector<std::string> commandLineArguments(int argc, char** argv);

// Called first in main. The memory of this process holds passwords: when it crashes, no copy of it
// is left on a disk or sent anywhere, and no other program of the same user may look into it. On
// Windows, DLLs are from here on loaded from the system's folder only: not from beside the program
// or the current folder, where others may have put one.
void hardenProcess();

}  // namespace platform
