// What an installation chooses beside the arguments of a service's creation: its rights, its
// restarts, its source of events. One call each; a call that fails sets the last error (process.h).
// Used by the installer, on one thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/service/service_control.h"

namespace platform {

class ServiceSetup {
 public:
  virtual ~ServiceSetup() = default;

  // Restarts a service that ends with an error, each time after the next of these delays (ms); the
  // last one counts for all that follow. The count begins anew after so many seconds without one.
  virtual bool setRestarts(ServiceHandle service, const std::vector<std::uint32_t>& delaysMs,
                           std::uint32_t resetSeconds) = 0;
  // Starts it some minutes after the services that start with the machine.
  virtual bool delayStart(ServiceHandle service) = 0;
  // Adds the service's own identity ("NT SERVICE\NAME") to its process, whatever its account is.
  virtual bool giveIdentity(ServiceHandle service) = 0;
  // Takes all other privileges from its process.
  virtual bool keepPrivileges(ServiceHandle service, const std::vector<std::string>& names) = 0;
  // The right of an account to log on as a service.
  virtual bool allowLogon(const std::string& account) = 0;
  // Lets the service's own identity read and write a folder. One that is made for it is for nobody
  // else but the system and administrators.
  virtual bool admitToFolder(const std::string& service, const std::string& folder) = 0;
  // The same for a registry key below HKEY_LOCAL_MACHINE, which keeps its other rights.
  virtual bool admitToKey(const std::string& service, const std::string& path) = 0;
  // Lets nobody but that identity, the system and administrators read a key, which holds secrets.
  // Where there is none it is made, unless `make` is false.
  virtual bool sealKey(const std::string& service, const std::string& path, bool make) = 0;
  // Registers a program as the source of the events that ServiceControl enters, and removes it
  // again.
  virtual bool addEventSource(const std::string& name, const std::string& imagePath) = 0;
  virtual bool removeEventSource(const std::string& name) = 0;
};

// Null where the file that describes a service to its manager has all this. Never destroyed.
ServiceSetup* systemServiceSetup();

}  // namespace platform
