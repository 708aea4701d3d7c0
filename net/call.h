// What every step of an operation needs of the public call that it works for: where it reports, and
// whom it tells of its progress and asks for an abort. Handed down from the public method through
// the mail session to the sockets; lives on the stack of that method.
#pragma once

#include "base/log_base.h"
#include "net/progress.h"

namespace kelvado {

struct Call {
  base::LogBase& log;
  ProgressMonitor& progress;

  // This call is to end, or everything in the process. Does not ask the application anew.
  bool abortRequested() const { return progress.aborted() || abortAllRequested(); }
};

}  // namespace kelvado
