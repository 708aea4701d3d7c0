// The service control manager as a service and its installer meet it: Windows' own, or systemd.
// Steps, messages and the table of controls are in service/; this is one call each. A call that
// fails sets the last error (process.h).
//
// startDispatcher, registerHandler and setStatus belong to the service: setStatus is called by its
// main thread and by the dispatcher's, and allocates nothing of its own, because the worker may be
// frozen in the middle of an allocation. The rest belongs to the installer, on one thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/registry/registry.h"
#include "platform/service/event.h"
#include "platform/system/win_error.h"

namespace platform {

// A manager, a service or a status handle; 0 is none.
using ServiceHandle = std::uintptr_t;
inline constexpr ServiceHandle kNoServiceHandle = 0;

inline constexpr std::uint32_t kOwnProcess = 16;
inline constexpr std::uint32_t kStartAutomatically = 2;
inline constexpr std::uint32_t kErrorControlNormal = 1;

inline constexpr std::uint32_t kAcceptStop = 1;
inline constexpr std::uint32_t kAcceptPauseContinue = 2;
inline constexpr std::uint32_t kAcceptShutdown = 4;

enum class ServiceState : std::uint32_t {
  None = 0,
  Stopped = 1,
  StartPending = 2,
  StopPending = 3,
  Running = 4,
  ContinuePending = 5,
  PausePending = 6,
  Paused = 7,
};

enum class ServiceControlCode : std::uint32_t {
  Stop = 1,
  Pause = 2,
  Continue = 3,
  Interrogate = 4,
  Shutdown = 5,
};

struct ServiceStatus {
  std::uint32_t type = kOwnProcess;
  ServiceState state = ServiceState::None;
  std::uint32_t controlsAccepted = 0;
  WinError exitCode = 0;
  std::uint32_t serviceSpecificCode = 0;
  std::uint32_t checkPoint = 0;
  std::uint32_t waitHint = 0;  // ms
};

// The arguments of CreateServiceA.
struct NewService {
  std::string name;
  std::string displayName;
  std::uint32_t type = kOwnProcess;
  std::uint32_t startType = kStartAutomatically;
  std::uint32_t errorControl = kErrorControlNormal;
  std::string imagePath;
  std::string dependencies;
  std::string account;  // one without a password; empty: the system's own
};

enum class ManagerAccess { Connect, All };

class ServiceControl {
 public:
  virtual ~ServiceControl() = default;

  // Runs the service's main routine on a thread of its own, and its control handler on this one,
  // until the main routine has returned. False, at once, when no manager started this process.
  virtual bool startDispatcher(const std::string& name, std::function<void()> serviceMain) = 0;
  // kNoServiceHandle on failure.
  virtual ServiceHandle registerHandler(const std::string& name,
                                        std::function<void(ServiceControlCode)> handler) = 0;
  virtual bool setStatus(ServiceHandle handle, const ServiceStatus& status) = 0;

  // Of this machine; kNoServiceHandle on failure, as for the two below.
  virtual ServiceHandle openManager(ManagerAccess access) = 0;
  // Both with all access to the service.
  virtual ServiceHandle createService(ServiceHandle manager, const NewService& service) = 0;
  virtual ServiceHandle openService(ServiceHandle manager, const std::string& name) = 0;
  virtual bool startService(ServiceHandle service) = 0;
  virtual bool queryStatus(ServiceHandle service, ServiceStatus& status) = 0;
  virtual bool control(ServiceHandle service, ServiceControlCode code, ServiceStatus& status) = 0;
  virtual bool deleteService(ServiceHandle service) = 0;
  // Whether the account, the work folder and the rights of a service are chosen when it is
  // installed. Where not, the file that describes the service to its manager has them, and the
  // calls up to sealKey do nothing and succeed.
  virtual bool choosesAccount() const = 0;
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

  // A manager's or a service's handle; kNoServiceHandle is let pass.
  virtual void closeHandle(ServiceHandle handle) = 0;

  // The registry in which the manager keeps its services (RegConnectRegistryA, no machine name).
  virtual WinError connectRegistry(std::unique_ptr<Registry>& registry) = 0;

  // The system's event log. By default there is none: a journal that takes the service's standard
  // error, and notes itself what is started and stopped, needs nothing more.
  //
  // Enters an event, by any thread. What does not fit is cut off. An event log that takes nothing
  // is passed over: the text is on standard error too.
  virtual void reportEvent(Event event, const std::string& text) { (void)event, (void)text; }
  // Registers a program as the source of such events, and removes it again.
  virtual bool addEventSource(const std::string& name, const std::string& imagePath) {
    (void)name, (void)imagePath;
    return true;
  }
  virtual bool removeEventSource(const std::string& name) {
    (void)name;
    return true;
  }
};

// Never destroyed.
ServiceControl& systemServiceControl();

}  // namespace platform
