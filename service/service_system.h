// What the service's entry, installer and main routine need of the system, handed to them by
// reference: the real thing, or fakes. And who the service is.
#pragma once

#include "platform/service/service_control.h"
#include "platform/service/service_setup.h"
#include "platform/system/clock.h"
#include "platform/system/process.h"
#include "platform/system/worker_thread.h"

namespace service {

inline constexpr const char* kServiceName = "NRVPasswordExpiration";
inline constexpr const char* kDisplayName = "Norvyn Password Expiration Service";
inline constexpr const char* kDescription =
    "Handles password age settings for Norvyn Password Filter";
// No other services. The list's own terminator follows from the empty text.
inline constexpr const char* kDependencies = "";
// In the dispatch table and for the control handler. It is not the installed name, on purpose: for
// a service with a process of its own the manager does not compare them.
inline constexpr const char* kDispatchName = "Pwsentry Pro Password Expiration Service";

// Owns nothing.
struct ServiceSystem {
  platform::ServiceControl& control;
  platform::ServiceSetup* setup;  // null where a service is not equipped when it is installed
  platform::WorkerThreads& threads;
  platform::Process& process;
  platform::Clock& clock;
};

}  // namespace service
