#include "platform/system/stop_signals.h"

#include <atomic>

#include <windows.h>

namespace platform {
namespace {

std::atomic<bool> stopRequested{false};

// On a thread of the system's. False leaves the event to the system, which ends the process. After
// a console was closed the process has some seconds left; they are this thread's to wait.
BOOL WINAPI handleControl(DWORD event) {
  constexpr DWORD kLongestGraceMs = 10000;
  if (stopRequested.exchange(true)) return FALSE;
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) Sleep(kLongestGraceMs);
  return TRUE;
}

}  // namespace

StopSignals::StopSignals() {
  stopRequested = false;
  SetConsoleCtrlHandler(handleControl, TRUE);
}

StopSignals::~StopSignals() {
  SetConsoleCtrlHandler(handleControl, FALSE);
}

bool StopSignals::requested() {
  return stopRequested;
}

}  // namespace platform
