#include "platform/service/service_setup.h"

#include <memory>

#include <windows.h>

#include "platform/registry/windows/system_registry.h"
#include "platform/service/windows/event_log.h"
#include "platform/system/windows/access_list.h"

namespace platform {
namespace {

// The calls that return their error, for those who ask for the last one.
bool noteResult(WinError error) {
  if (error != kErrorSuccess) SetLastError(error);
  return error == kErrorSuccess;
}

// A system that does not know a level has nothing to be set there.
bool change(ServiceHandle service, DWORD level, void* info) {
  return ChangeServiceConfig2W(reinterpret_cast<SC_HANDLE>(service), level, info) != FALSE ||
         GetLastError() == ERROR_INVALID_LEVEL;
}

WinError makeKey(const std::string& path) {
  std::unique_ptr<RegistryKey> key;
  return makeSystemRegistry()->createKey(path, key);
}

class WindowsServiceSetup final : public ServiceSetup {
 public:
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

  bool addEventSource(const std::string& name, const std::string& imagePath) override {
    return noteResult(addEventSourceKey(name, imagePath));
  }
  bool removeEventSource(const std::string& name) override {
    return noteResult(removeEventSourceKey(name));
  }
};

}  // namespace

ServiceSetup* systemServiceSetup() {
  static WindowsServiceSetup setup;
  return &setup;
}

}  // namespace platform
