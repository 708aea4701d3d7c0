// The wish that a program of the command line end: Ctrl-C, and what a system sends when a terminal
// is closed or a session ends.
#pragma once

namespace platform {

// While one lives, such a wish is noted instead of ending the process at once; a second one ends
// it. One at a time, for a program's main thread.
class StopSignals {
 public:
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  static bool requested();
};

}  // namespace platform
