// The last error of a thread, as Windows keeps one: set by the calls of this folder whose interface
// says so, and never by one that succeeds.
#pragma once

#include "platform/system/win_error.h"

namespace platform {

void setLastError(WinError error);
WinError lastErrorOfThread();
// The Win32 number for an errno.
WinError winErrorOf(int error);

}  // namespace platform
