// A service manager, a thread and a process that record every call, one line each, and of which any
// call can be told to fail. The worker's thread never runs; waiting for the stop event delivers the
// controls that a test has lined up.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "config/format_text.h"
#include "service/service_system.h"
#include "tests/support/manual_clock.h"

namespace test_support {

class FakeServiceSystem : public platform::ServiceControl,
                          public platform::WorkerThreads,
                          public platform::Process {
 public:
  std::vector<std::string> calls;
  std::map<std::string, platform::WinError> failing;  // call name: last error
  std::vector<int> controls;                          // delivered while the service waits
  platform::ServiceState installedState = platform::ServiceState::Running;
  std::string message = "Out of luck.\r\n";
  ManualClock clock;

  service::ServiceSystem system() { return {*this, *this, *this, clock}; }
  std::function<void()> workerBody;

  bool startDispatcher(const std::string& name, std::function<void()> main) override {
    if (!call("StartServiceCtrlDispatcherA", name)) return false;
    main();
    return true;
  }
  platform::ServiceHandle registerHandler(
      const std::string& name, std::function<void(platform::ServiceControlCode)> handler) override {
    handler_ = std::move(handler);
    return call("RegisterServiceCtrlHandlerA", name) ? 7 : 0;
  }
  bool setStatus(platform::ServiceHandle handle, const platform::ServiceStatus& s) override {
    const std::string which = "SetServiceStatus " + std::to_string(++statusCalls_);
    const bool works = failing.count(which) == 0;
    if (!works) failing["SetServiceStatus"] = failing[which];
    call("SetServiceStatus",
         config::formatText("%u: type %u state %u accepts %u exit %u/%u check %u hint %u",
                            static_cast<unsigned>(handle), s.type, static_cast<unsigned>(s.state),
                            s.controlsAccepted, s.exitCode, s.serviceSpecificCode, s.checkPoint,
                            s.waitHint));
    failing.erase("SetServiceStatus");
    return works;
  }
  platform::ServiceHandle openManager(platform::ManagerAccess access) override {
    return call("OpenSCManagerA", access == platform::ManagerAccess::All ? "all" : "connect") ? 1
                                                                                              : 0;
  }
  platform::ServiceHandle createService(platform::ServiceHandle manager,
                                        const platform::NewService& s) override {
    return call("CreateServiceA",
                config::formatText("%u %s|%s|%u|%u|%u|%s|%s", static_cast<unsigned>(manager),
                                   s.name.c_str(), s.displayName.c_str(), s.type, s.startType,
                                   s.errorControl, s.imagePath.c_str(), s.dependencies.c_str()))
               ? 2
               : 0;
  }
  platform::ServiceHandle openService(platform::ServiceHandle manager,
                                      const std::string& name) override {
    return call("OpenServiceA", std::to_string(manager) + " " + name) ? 2 : 0;
  }
  bool startService(platform::ServiceHandle service) override {
    return call("StartServiceA", std::to_string(service));
  }
  bool queryStatus(platform::ServiceHandle service, platform::ServiceStatus& status) override {
    if (!call("QueryServiceStatus", std::to_string(service))) return false;
    status.state = installedState;
    return true;
  }
  bool control(platform::ServiceHandle service, platform::ServiceControlCode code,
               platform::ServiceStatus&) override {
    return call("ControlService",
                std::to_string(service) + " " + std::to_string(static_cast<int>(code)));
  }
  bool deleteService(platform::ServiceHandle service) override {
    return call("DeleteService", std::to_string(service));
  }
  void closeHandle(platform::ServiceHandle handle) override {
    call("CloseServiceHandle", std::to_string(handle));
  }
  platform::WinError connectRegistry(std::unique_ptr<platform::Registry>& registry) override {
    if (!call("RegConnectRegistryA", "")) return error_;
    registry = std::make_unique<RegistryView>(*this);
    return platform::kErrorSuccess;
  }

  platform::ThreadHandle createThread(std::function<void()> body) override {
    workerBody = std::move(body);
    return call("CreateThread", "") ? 8 : 0;
  }
  bool suspend(platform::ThreadHandle thread) override {
    return call("SuspendThread", std::to_string(thread));
  }
  bool resume(platform::ThreadHandle thread) override {
    return call("ResumeThread", std::to_string(thread));
  }
  void closeThread(platform::ThreadHandle thread) override {
    call("CloseThread", std::to_string(thread));
  }
  platform::EventHandle createEvent() override { return call("CreateEventA", "") ? 9 : 0; }
  bool setEvent(platform::EventHandle event) override {
    return call("SetEvent", std::to_string(event));
  }
  void wait(platform::EventHandle event) override {
    call("WaitForSingleObject", std::to_string(event));
    for (const int code : controls) {
      calls.push_back("control " + std::to_string(code));
      handler_(static_cast<platform::ServiceControlCode>(code));
    }
  }
  void closeEvent(platform::EventHandle event) override {
    call("CloseEvent", std::to_string(event));
  }

  platform::WinError lastError() override { return error_; }
  std::string errorMessage(platform::WinError) override { return message; }
  std::string imagePath() override {
    return call("GetModuleFileNameA", "") ? "C:\\Program Files\\pwLapseSvc.exe" : "";
  }
  void exit(std::uint32_t code) override { call("ExitProcess", std::to_string(code)); }

 private:
  struct KeyView : platform::RegistryKey {
    explicit KeyView(FakeServiceSystem& fake) : owner(fake) {}
    platform::WinError queryValue(const std::string&, std::size_t,
                                  platform::RegistryValue&) override {
      return platform::kErrorFileNotFound;
    }
    platform::WinError setValue(const std::string& name,
                                const platform::RegistryValue& value) override {
      const std::string text = value.type == platform::RegistryType::Dword
                                   ? std::to_string(value.bytes.at(0))
                                   : value.bytes.substr(0, value.bytes.find('\0'));
      owner.call("RegSetValueExA", name + "=" + text);
      return platform::kErrorSuccess;
    }
    FakeServiceSystem& owner;
  };
  struct RegistryView : platform::Registry {
    explicit RegistryView(FakeServiceSystem& fake) : owner(fake) {}
    platform::WinError openKey(const std::string& path, platform::RegistryAccess access,
                               std::unique_ptr<platform::RegistryKey>& key) override {
      const bool all = access == platform::RegistryAccess::All;
      if (!owner.call("RegOpenKeyExA", path + (all ? " all" : " query"))) return owner.error_;
      key = std::make_unique<KeyView>(owner);
      return platform::kErrorSuccess;
    }
    platform::WinError createKey(const std::string& path,
                                 std::unique_ptr<platform::RegistryKey>& key) override {
      owner.call("RegCreateKeyExA", path);
      key = std::make_unique<KeyView>(owner);
      return platform::kErrorSuccess;
    }
    FakeServiceSystem& owner;
  };

  bool call(const std::string& name, const std::string& arguments) {
    calls.push_back(arguments.empty() ? name : name + " " + arguments);
    const auto failure = failing.find(name);
    if (failure == failing.end()) return true;
    error_ = failure->second;
    return false;
  }

  std::function<void(platform::ServiceControlCode)> handler_;
  platform::WinError error_ = 0;
  int statusCalls_ = 0;
};

}  // namespace test_support
