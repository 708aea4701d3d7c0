#include "platform/service/service_control.h"

#include <utility>

#include <windows.h>

#include "platform/registry/windows/system_registry.h"
#include "platform/service/windows/event_log.h"
#include "platform/system/windows/access_list.h"

namespace platform {
namespace {

// The dispatcher calls plain functions, and knows no argument of ours: a process has one service.
std::function<void()> serviceMainOfProcess;
std::function<void(ServiceControlCode)> handlerOfProcess;

void WINAPI runServiceMain(DWORD, char**) {
  serviceMainOfProcess();
}

void WINAPI handleControl(DWORD code) {
  handlerOfProcess(static_cast<ServiceControlCode>(code));
}

SC_HANDLE managerOrService(ServiceHandle handle) {
  return reinterpret_cast<SC_HANDLE>(handle);
}

ServiceHandle handleOf(const void* handle) {
  return reinterpret_cast<ServiceHandle>(handle);
}

ServiceStatus statusOf(const SERVICE_STATUS& native) {
  return {native.dwServiceType,
          static_cast<ServiceState>(native.dwCurrentState),
          native.dwControlsAccepted,
          native.dwWin32ExitCode,
          native.dwServiceSpecificExitCode,
          native.dwCheckPoint,
          native.dwWaitHint};
}

// The calls that return their error, for those who ask for the last one.
bool noteResult(WinError error) {
  if (error != kErrorSuccess) SetLastError(error);
  return error == kErrorSuccess;
}

// A system that does not know a level has nothing to be set there.
bool change(ServiceHandle service, DWORD level, void* info) {
  return ChangeServiceConfig2W(managerOrService(service), level, info) != FALSE ||
         GetLastError() == ERROR_INVALID_LEVEL;
}

WinError makeKey(const std::string& path) {
  std::unique_ptr<RegistryKey> key;
  return makeSystemRegistry()->createKey(path, key);
}

class WindowsServiceControl final : public ServiceControl {
 public:
  bool startDispatcher(const std::string& name, std::function<void()> serviceMain) override {
    serviceMainOfProcess = std::move(serviceMain);
    std::string tableName = name;  // the table is not const
    const SERVICE_TABLE_ENTRYA table[] = {{tableName.data(), runServiceMain}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherA(table) != FALSE;
  }

  ServiceHandle registerHandler(const std::string& name,
                                std::function<void(ServiceControlCode)> handler) override {
    handlerOfProcess = std::move(handler);
    return handleOf(RegisterServiceCtrlHandlerA(name.c_str(), handleControl));
  }

  bool setStatus(ServiceHandle handle, const ServiceStatus& status) override {
    SERVICE_STATUS native{
        status.type,     static_cast<DWORD>(status.state), status.controlsAccepted,
        status.exitCode, status.serviceSpecificCode,       status.checkPoint,
        status.waitHint};
    return SetServiceStatus(reinterpret_cast<SERVICE_STATUS_HANDLE>(handle), &native) != FALSE;
  }

  ServiceHandle openManager(ManagerAccess access) override {
    const DWORD rights = access == ManagerAccess::All ? SC_MANAGER_ALL_ACCESS : SC_MANAGER_CONNECT;
    return handleOf(OpenSCManagerA(nullptr, nullptr, rights));
  }

  ServiceHandle createService(ServiceHandle manager, const NewService& service) override {
    // A command line: without quotes the system would first look for a program that ends at a
    // blank.
    const bool hasBlank = service.imagePath.find(' ') != std::string::npos;
    const std::string command = hasBlank ? '"' + service.imagePath + '"' : service.imagePath;
    return handleOf(
        CreateServiceA(managerOrService(manager), service.name.c_str(), service.displayName.c_str(),
                       SERVICE_ALL_ACCESS, service.type, service.startType, service.errorControl,
                       command.c_str(), nullptr, nullptr, service.dependencies.c_str(),
                       service.account.empty() ? nullptr : service.account.c_str(), nullptr));
  }

  ServiceHandle openService(ServiceHandle manager, const std::string& name) override {
    return handleOf(OpenServiceA(managerOrService(manager), name.c_str(), SERVICE_ALL_ACCESS));
  }

  bool startService(ServiceHandle service) override {
    return StartServiceA(managerOrService(service), 0, nullptr) != FALSE;
  }

  bool queryStatus(ServiceHandle service, ServiceStatus& status) override {
    SERVICE_STATUS native{};
    if (QueryServiceStatus(managerOrService(service), &native) == FALSE) return false;
    status = statusOf(native);
    return true;
  }

  bool control(ServiceHandle service, ServiceControlCode code, ServiceStatus& status) override {
    SERVICE_STATUS native{};
    if (ControlService(managerOrService(service), static_cast<DWORD>(code), &native) == FALSE) {
      return false;
    }
    status = statusOf(native);
    return true;
  }

  bool deleteService(ServiceHandle service) override {
    return DeleteService(managerOrService(service)) != FALSE;
  }

  bool choosesAccount() const override { return true; }

  bool setRestarts(ServiceHandle service, const std::vector<std::uint32_t>& delaysMs,
                   std::uint32_t resetSeconds) override {
    std::vector<SC_ACTION> steps;
    for (const std::uint32_t delay : delaysMs) steps.push_back({SC_ACTION_RESTART, delay});
    SERVICE_FAILURE_ACTIONSW actions{};
    actions.dwResetPeriod = resetSeconds;
    actions.cActions = static_cast<DWORD>(steps.size());
    actions.lpsaActions = steps.data();
    SERVICE_FAILURE_ACTIONS_FLAG alsoAfterAnErrorOfItsOwn{TRUE};
    return change(service, SERVICE_CONFIG_FAILURE_ACTIONS, &actions) &&
           change(service, SERVICE_CONFIG_FAILURE_ACTIONS_FLAG, &alsoAfterAnErrorOfItsOwn);
  }

  bool delayStart(ServiceHandle service) override {
    SERVICE_DELAYED_AUTO_START_INFO delayed{TRUE};
    return change(service, SERVICE_CONFIG_DELAYED_AUTO_START_INFO, &delayed);
  }

  bool giveIdentity(ServiceHandle service) override {
    SERVICE_SID_INFO identity{SERVICE_SID_TYPE_UNRESTRICTED};
    return change(service, SERVICE_CONFIG_SERVICE_SID_INFO, &identity);
  }

  bool keepPrivileges(ServiceHandle service, const std::vector<std::string>& names) override {
    std::wstring list;  // each name and the list end with a NUL; they are ASCII
    for (const std::string& name : names) {
      list.append(name.begin(), name.end()).push_back(L'\0');
    }
    SERVICE_REQUIRED_PRIVILEGES_INFOW privileges{list.data()};
    return change(service, SERVICE_CONFIG_REQUIRED_PRIVILEGES_INFO, &privileges);
  }

  bool allowLogon(const std::string& account) override {
    return noteResult(addAccountRight(account, L"SeServiceLogonRight"));
  }

  bool admitToFolder(const std::string& service, const std::string& folder) override {
    constexpr DWORD kReadAndWrite =
        FILE_GENERIC_READ | FILE_GENERIC_WRITE | FILE_GENERIC_EXECUTE | DELETE;
    if (CreateDirectoryA(folder.c_str(), nullptr) != 0) {
      return noteResult(
          setAccess(folder, SE_FILE_OBJECT,
                    L"D:(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1301bf;;;%SERVICE%)", service));
    }
    return GetLastError() == ERROR_ALREADY_EXISTS &&
           noteResult(addAccess(folder, SE_FILE_OBJECT, kReadAndWrite, service));
  }

  bool admitToKey(const std::string& service, const std::string& path) override {
    const WinError made = makeKey(path);
    return noteResult(made != kErrorSuccess ? made
                                            : addAccess(objectNameOfKey(path), SE_REGISTRY_KEY,
                                                        KEY_ALL_ACCESS, service));
  }

  bool sealKey(const std::string& service, const std::string& path, bool make) override {
    if (make) {
      const WinError made = makeKey(path);
      if (made != kErrorSuccess) return noteResult(made);
    }
    const WinError sealed =
        setAccess(objectNameOfKey(path), SE_REGISTRY_KEY,
                  L"D:(A;CI;KA;;;SY)(A;CI;KA;;;BA)(A;CI;KR;;;%SERVICE%)", service);
    return noteResult(sealed == ERROR_FILE_NOT_FOUND && !make ? kErrorSuccess : sealed);
  }

  void closeHandle(ServiceHandle handle) override {
    if (handle != kNoServiceHandle) CloseServiceHandle(managerOrService(handle));
  }

  // The connection only shows that the registry can be reached: its keys are then opened by their
  // path, as everywhere.
  WinError connectRegistry(std::unique_ptr<Registry>& registry) override {
    HKEY connected = nullptr;
    const LSTATUS status = RegConnectRegistryA(nullptr, HKEY_LOCAL_MACHINE, &connected);
    if (status != ERROR_SUCCESS) return static_cast<WinError>(status);
    RegCloseKey(connected);
    registry = makeSystemRegistry();
    return kErrorSuccess;
  }

  void reportEvent(Event event, const std::string& text) override { enterEvent(event, text); }
  bool addEventSource(const std::string& name, const std::string& imagePath) override {
    return noteResult(addEventSourceKey(name, imagePath));
  }
  bool removeEventSource(const std::string& name) override {
    return noteResult(removeEventSourceKey(name));
  }
};

}  // namespace

ServiceControl& systemServiceControl() {
  static WindowsServiceControl control;
  return control;
}

}  // namespace platform
