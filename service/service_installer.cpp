#include "service/service_installer.h"

#include <cstddef>
#include <cstdio>
#include <memory>

#include "base/ascii.h"
#include "base/format_text.h"
#include "config/editions.h"
#include "config/pass_files.h"
#include "config/registry_readers.h"
#include "platform/system/files.h"

namespace service {
namespace {

using platform::kErrorSuccess;
using platform::kNoServiceHandle;
using platform::ManagerAccess;
using platform::ServiceHandle;
using platform::ServiceState;

// After a first, a second and each further failure in a row; a day without one begins anew.
const std::vector<std::uint32_t> kRestartDelaysMs = {60'000, 300'000, 900'000};
constexpr std::uint32_t kRestartResetSeconds = 86'400;
// To pass through folders that it may not list. Nothing else that the service does takes one.
const std::vector<std::string> kPrivileges = {"SeChangeNotifyPrivilege"};

// How long a service has to stop after the stop control, whether that was delivered or not.
constexpr std::uint32_t kStopGraceMs = 1000;

// Steps 5 to 7 of an installation. The description is no argument of CreateServiceA; it is written
// where the manager keeps it. False, said on standard output, when it could not be.
bool writeDescription(ServiceSystem system, const std::string& name,
                      const std::string& description) {
  std::unique_ptr<platform::Registry> registry;
  const platform::WinError connected = system.control.connectRegistry(registry);
  if (connected != kErrorSuccess) {
    std::printf("Error connecting to registry.\n");
    std::printf("\tError number: %d\n", static_cast<int>(connected));
    return false;
  }
  const std::string path = std::string(config::kServicesKey) + name;
  std::unique_ptr<platform::RegistryKey> key;
  const platform::WinError opened = registry->openKey(path, platform::RegistryAccess::All, key);
  if (opened != kErrorSuccess) {
    std::printf("Error adding service description.\n\tError: %d\n", static_cast<int>(opened));
    return false;
  }
  config::writeText(*registry, path, "Description", description);
  config::writeNumber(*registry, path, "Start", platform::kStartAutomatically);
  return true;
}

bool writeWorkFolder(ServiceSystem system, const std::string& folder) {
  std::unique_ptr<platform::Registry> registry;
  const platform::WinError connected = system.control.connectRegistry(registry);
  return connected == kErrorSuccess && config::writeText(*registry, config::kServiceParametersKey,
                                                         config::kWorkFolderValue, folder);
}

// Without it a pass keeps no logs; what is in it inherits the rights of the folder.
void makeLogFolder(const std::string& workFolder) {
  const std::string logs = workFolder + '\\' + config::kLogDirectory;
  if (platform::createDirectory(logs)) return;
  std::printf("%s could not be made - %s\n", logs.c_str(), platform::fileErrorText().c_str());
}

// Whether Windows knows the account's password itself, or it has none.
bool needsNoPassword(const std::string& account) {
  return account.ends_with('$') || base::equalsNoCase(account, "LocalSystem") ||
         base::beginsWithNoCase(account, "NT SERVICE\\") ||
         base::beginsWithNoCase(account, "NT AUTHORITY\\");
}

// What the service has beside the arguments of its creation. Each step is tried; those that fail
// are said on standard output.
void equipService(ServiceSystem system, ServiceHandle service, const std::string& name,
                  const std::string& imagePath, const InstallOptions& options) {
  if (system.setup == nullptr) return;
  const auto report = [&](bool done, const char* what) {
    if (done) return;
    std::printf("Problems with %s - %s\n", what, lastErrorText(system.process).c_str());
  };
  platform::ServiceSetup& setup = *system.setup;
  report(setup.giveIdentity(service), "the service's own identity");
  report(setup.keepPrivileges(service, kPrivileges), "the service's privileges");
  report(setup.setRestarts(service, kRestartDelaysMs, kRestartResetSeconds),
         "the restarts after a failure");
  if (options.delayedStart) report(setup.delayStart(service), "the delayed start");
  if (options.account.ends_with('$')) {
    report(setup.allowLogon(options.account), "the right to log on as a service");
  }
  if (!options.workFolder.empty()) {
    report(setup.admitToFolder(name, options.workFolder), "the rights of the work folder");
    makeLogFolder(options.workFolder);
    if (!writeWorkFolder(system, options.workFolder)) {
      std::printf("%s could not be written below %s: the service works in the system's folder.\n",
                  config::kWorkFolderValue, config::kServiceParametersKey);
    }
  }
  report(setup.admitToKey(name, config::kProductKey), "the rights of the key of the last day");
  // The other edition's key is not made: a member server that has it uses it.
  report(setup.sealKey(name, config::kExpirationKeyMpe, true), "the rights of the settings");
  report(setup.sealKey(name, config::kExpirationKeyMpems, false),
         "the rights of the settings of a member server");
  report(setup.addEventSource(name, imagePath), "the source of events");
}

// `step` and the last error as decimal text.
void printLastErrorNumber(ServiceSystem system, const char* step) {
  std::printf("%s%s\n", step, std::to_string(system.process.lastError()).c_str());
}

void stopService(ServiceSystem system, ServiceHandle service) {
  std::printf("Stopping service...\n");
  platform::ServiceStatus status;
  if (!system.control.control(service, platform::ServiceControlCode::Stop, status)) {
    printLastErrorNumber(system, "Problems stopping service. Error number: ");
  }
  system.clock.sleep(kStopGraceMs);
}

}  // namespace

std::string lastErrorText(platform::Process& process) {
  constexpr std::size_t kBufferSize = 256;
  constexpr std::size_t kRoomForNumber = 14;  // " (0x", eight digits, ")" and a terminator
  constexpr std::size_t kLineEnd = 2;
  const std::string text = process.errorMessage(process.lastError());
  if (text.size() < kLineEnd || kBufferSize < text.size() + kRoomForNumber) return {};
  return base::formatText("%s (0x%x)", text.substr(0, text.size() - kLineEnd).c_str(),
                          process.lastError());
}

std::string installOptionsFault(const InstallOptions& options, const ServiceSystem& system) {
  const bool any = !options.account.empty() || !options.workFolder.empty() || options.delayedStart;
  if (any && system.setup == nullptr) {
    return "no option is taken here: the service's unit names its account and work folder";
  }
  if (!options.account.empty() && !needsNoPassword(options.account)) {
    return "--account: " + options.account +
           " has a password: name a managed service account (DOMAIN\\NAME$) or NT SERVICE\\" +
           kServiceName + ", or set the account in the services console afterwards";
  }
  const bool ownAccount =
      !options.account.empty() && !base::equalsNoCase(options.account, "LocalSystem");
  if (ownAccount && options.workFolder.empty()) {
    return "--account needs --work-folder: the system's folder is not for other accounts";
  }
  return {};
}

void installService(ServiceSystem system, const std::string& name, const std::string& displayName,
                    const std::string& description, const std::string& dependencies,
                    const InstallOptions& options) {
  platform::NewService service;
  service.name = name;
  service.displayName = displayName;
  service.dependencies = dependencies;
  service.account = options.account;
  service.imagePath = system.process.imagePath();
  if (service.imagePath.empty()) {
    std::printf("Unable to install %s - %s\n", displayName.c_str(),
                lastErrorText(system.process).c_str());
    return;
  }
  const ServiceHandle manager = system.control.openManager(ManagerAccess::All);
  if (manager == kNoServiceHandle) {
    std::printf("OpenSCManager failed - %s\n", lastErrorText(system.process).c_str());
    return;
  }
  const ServiceHandle created = system.control.createService(manager, service);
  if (created == kNoServiceHandle) {
    std::printf("CreateService failed - %s\n", lastErrorText(system.process).c_str());
    system.control.closeHandle(manager);
    return;
  }
  equipService(system, created, name, service.imagePath, options);
  std::printf("%s installed.\n", displayName.c_str());
  // Reported as started whether it was or not: the manager's own log says.
  system.control.startService(created);
  std::printf("%s started.\n", displayName.c_str());
  system.control.closeHandle(created);
  // Without a description the manager's handle stays open; the process is about to end.
  if (writeDescription(system, name, description)) system.control.closeHandle(manager);
}

void removeService(ServiceSystem system, const std::string& name) {
  const ServiceHandle manager = system.control.openManager(ManagerAccess::Connect);
  if (manager == kNoServiceHandle) {
    printLastErrorNumber(system, "Error opening service control database. Error number :");
  }
  const ServiceHandle service = system.control.openService(manager, name);
  if (service == kNoServiceHandle) {
    printLastErrorNumber(system, "Problems removing service. Error number: ");
  }
  platform::ServiceStatus status;
  if (!system.control.queryStatus(service, status)) {
    printLastErrorNumber(system, "Problems getting service status. Error number: ");
  }
  // A state that could not be read is taken for a service that runs.
  if (status.state != ServiceState::Stopped) stopService(system, service);
  if (system.control.deleteService(service)) {
    std::printf("Service successfully removed.\n");
  } else {
    printLastErrorNumber(system, "Problems deleting service. Error number: ");
  }
  if (system.setup != nullptr && !system.setup->removeEventSource(name)) {
    printLastErrorNumber(system, "Problems removing the event source. Error number: ");
  }
  system.control.closeHandle(service);
  system.control.closeHandle(manager);
}

}  // namespace service
