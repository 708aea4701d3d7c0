// The events that the service enters in the system's event log. Filters and alerts of
// administrators go by the numbers: they are in docs/windows.md, and none is ever given another
// meaning.
#pragma once

#include <cstdint>

namespace platform {

enum class Event : std::uint32_t {
  ServiceStarted = 1,
  ServiceStopped = 2,
  ServiceFailed = 3,  // stopped by a fault
  PassWell = 10,
  PassWithProblems = 11,
  PassLeftOut = 12,
  SettingsWrong = 20,
  DirectoryFailed = 21,
  MailServerFailed = 22,
};

}  // namespace platform
