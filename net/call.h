// What every step of an operation needs of the public method that it works for: the log, and the
// monitor for progress and abort. Made by the public method, on its stack, and handed down through
// the mail session to the sockets. Owns neither.
#pragma once

#include "base/log_base.h"
#include "net/progress.h"

namespace kelvado {

struct Call {
  base::LogBase& log;
  ProgressMonitor& progress;

  // An abort was requested, of this call or of all; does not ask the application again.
  bool abortRequested() const { return progress.aborted() || abortAllRequested(); }
};

}  // namespace kelvado
