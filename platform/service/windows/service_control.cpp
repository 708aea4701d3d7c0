#include "platform/service/service_control.h"

#include <utility>

#include <windows.h>

#include "platform/registry/windows/system_registry.h"
#include "platform/service/windows/event_log.h"

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
};

}  // namespace

ServiceControl& systemServiceControl() {
  static WindowsServiceControl control;
  return control;
}

}  // namespace platform
