// Installs the service and removes it again, from the command line. Every step says on standard
// output what came of it; neither fails the process.
#pragma once

#include <string>

#include "service/service_system.h"

namespace service {

// The last error in the system's words, "TEXT (0xCODE)"; empty when the system has none, or none
// that fits 256 characters.
std::string lastErrorText(platform::Process& process);

// What an administrator chooses at an installation.
struct InstallOptions {
  std::string account;     // one without a password; empty: the system's own
  std::string workFolder;  // absolute; empty: the system's folder
  bool delayedStart = false;
};

// Why an installation with these options is refused: one line with the cure; empty when it is not.
std::string installOptionsFault(const InstallOptions& options, const ServiceSystem& system);

// Installs the running program as a service, with the rights that it needs, and starts it. Of a
// service that is there already nothing is changed.
void installService(ServiceSystem system, const std::string& name, const std::string& displayName,
                    const std::string& description, const std::string& dependencies,
                    const InstallOptions& options);

// Stops the service and removes it. No step that fails keeps the next from being tried.
void removeService(ServiceSystem system, const std::string& name);

}  // namespace service
