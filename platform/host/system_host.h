// Makes the host that a program of this system runs on: which registry, which directory.
// Used by the executables only.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/host/host.h"
#include "platform/registry/overlay_registry.h"

namespace platform {

struct HostOptions {
  std::string registryFile;  // a ".reg" file; empty: the registry of this system
  std::string directoryUri;  // see servedDirectoryAddresses; empty: as the registry says
  // Settings of the directory that cannot be used fail the directory, not the host.
  bool directoryMayBeUnusable = false;
  // Nothing is written to the registry: what is written is seen by this host alone.
  bool registryIsKept = false;
  std::vector<GivenValue> givenValues{};  // stand for the registry's, with `registryIsKept` only
};

// Owns the parts of a Host.
class SystemHost {
 public:
  virtual ~SystemHost() = default;
  virtual Host host() = 0;
};

// Null, with `error` one line that names the file, line or setting, when the registry or a setting
// of the directory cannot be used. An unreachable directory is not an error here: a pass finds out
// and reports it.
std::unique_ptr<SystemHost> makeSystemHost(const HostOptions& options, std::string& error);

// The addresses of directories that this system serves, for the help of an option.
std::string servedDirectoryAddresses();
// Whether LDAP addresses are among them, and so a server can be chosen.
bool servesLdap();

// The registry that an empty HostOptions::registryFile stands for, in words for messages.
std::string defaultRegistryName();

}  // namespace platform
