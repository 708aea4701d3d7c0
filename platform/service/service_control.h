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
  // A manager's or a service's handle; kNoServiceHandle is let pass.
  virtual void closeHandle(ServiceHandle handle) = 0;

  // The registry in which the manager keeps its services (RegConnectRegistryA, no machine name).
  virtual WinError connectRegistry(std::unique_ptr<Registry>& registry) = 0;

  // Enters an event in the system's event log, by any thread. What does not fit is cut off. An
  // event log that takes nothing is passed over: the text is on standard error too. By default
  // there is none: a journal that takes the service's standard error, and notes itself what is
  // started and stopped, needs nothing more.
  virtual void reportEvent(Event event, const std::string& text) { (void)event, (void)text; }
};

// Never destroyed.
ServiceControl& systemServiceControl();

}  // namespace platform
