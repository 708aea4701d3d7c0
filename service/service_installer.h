// Installs the service and removes it again, from the command line. Every step says on standard
// output what came of it; neither fails the process.
#pragma once

#include <string>

#include "service/service_system.h"

namespace service {

// The last error in the system's words, "TEXT (0xCODE)"; empty when the system has none, or none
// that fits 256 characters.
std::string lastErrorText(platform::Process& process);

// Installs the running program as a service and starts it.
void installService(ServiceSystem system, const std::string& name, const std::string& displayName,
                    const std::string& description, const std::string& dependencies);

// Stops the service and removes it. No step that fails keeps the next from being tried.
void removeService(ServiceSystem system, const std::string& name);

}  // namespace service
