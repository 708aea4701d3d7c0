// The service's command line, its installation and its life under a service manager that records
// every call, with each call failing in turn. The calls and texts of every case are those of
// service_calls.txt.
#include <iterator>
#include <sstream>

#include <gtest/gtest.h>

#include "base/format_text.h"
#include "base/text.h"
#include "platform/registry/file/reg_registry.h"
#include "platform/system/files.h"
#include "service/service_entry.h"
#include "service/service_installer.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace {

using namespace platform;

constexpr WinError kFault = 1234;  // "(0x4d2)"

using Handler = std::function<void(ServiceControlCode)>;

struct FakeSystem : ServiceControl, ServiceSetup, WorkerThreads, Process, service::ServiceWork {
  std::string calls;             // a line for each
  std::string failing = "none";  // how the line of the failing call begins
  std::vector<int> controls;     // what comes while the service waits
  ServiceState installed = ServiceState::Running;
  std::string message = "Out of luck.\r\n";
  test_support::ManualClock clock;

  service::ServiceSystem system() {
    return {*this, failing == "no setup" ? nullptr : this, *this, *this, clock};
  }

  bool startDispatcher(const std::string& name, std::function<void()> main) override {
    if (!call("dispatch " + name)) return false;
    main();
    return true;
  }
  ServiceHandle registerHandler(const std::string& name, Handler handler) override {
    handler_ = std::move(handler);
    return call("register " + name) ? 7 : 0;
  }
  bool setStatus(ServiceHandle handle, const ServiceStatus& s) override {
    return call(base::formatText("status %d, accepts %u, exit %u/%u, step %u, %u ms, type %u to %d",
                                 static_cast<int>(s.state), s.controlsAccepted, s.exitCode,
                                 s.serviceSpecificCode, s.checkPoint, s.waitHint, s.type,
                                 static_cast<int>(handle)));
  }
  ServiceHandle openManager(ManagerAccess access) override {
    return call(access == ManagerAccess::All ? "manager all" : "manager connect") ? 1 : 0;
  }
  ServiceHandle createService(ServiceHandle manager, const NewService& s) override {
    return call(base::formatText("create %d %s|%s|%s|%s|%u%u%u|%s", static_cast<int>(manager),
                                 s.name.c_str(), s.displayName.c_str(), s.imagePath.c_str(),
                                 s.dependencies.c_str(), s.type, s.startType, s.errorControl,
                                 s.account.c_str()))
               ? 2
               : 0;
  }
  ServiceHandle openService(ServiceHandle manager, const std::string& name) override {
    return call("open " + std::to_string(manager) + ' ' + name) ? 2 : 0;
  }
  bool startService(ServiceHandle h) override { return call("start", h); }
  bool queryStatus(ServiceHandle h, ServiceStatus& status) override {
    if (!call("query", h)) return false;
    status.state = installed;
    return true;
  }
  bool control(ServiceHandle h, ServiceControlCode code, ServiceStatus&) override {
    return call("control " + std::to_string(static_cast<int>(code)), h);
  }
  bool deleteService(ServiceHandle h) override { return call("delete", h); }
  bool setRestarts(ServiceHandle h, const std::vector<std::uint32_t>& delays,
                   std::uint32_t reset) override {
    std::string line = "restarts after";
    for (const std::uint32_t delay : delays) line += ' ' + std::to_string(delay);
    return call(line + " ms, reset " + std::to_string(reset) + " s", h);
  }
  bool delayStart(ServiceHandle h) override { return call("delay", h); }
  bool giveIdentity(ServiceHandle h) override { return call("identity", h); }
  bool keepPrivileges(ServiceHandle h, const std::vector<std::string>& names) override {
    return call("privileges " + names.at(0), h + (names.size() - 1) * 100);
  }
  bool allowLogon(const std::string& account) override { return call("logon of " + account); }
  bool admitToFolder(const std::string& service, const std::string& folder) override {
    createDirectory(folder);
    return call(service + " into " + folder.substr(folder.find_last_of("/\\") + 1));
  }
  bool admitToKey(const std::string& service, const std::string& path) override {
    return call(service + " into key " + path);
  }
  bool sealKey(const std::string& service, const std::string& path, bool make) override {
    return call((make ? "make and seal " : "seal ") + path + " for " + service);
  }
  void closeHandle(ServiceHandle h) override { call("close", h); }
  // A registry file of the test stands for the manager's.
  WinError connectRegistry(std::unique_ptr<Registry>& registry) override {
    std::string error;
    registry = RegRegistry::load("services.reg", error);
    return call("connect registry") ? kErrorSuccess : kFault;
  }
  void reportEvent(Event event, const std::string& text) override {
    call("event " + std::to_string(static_cast<int>(event)) + ' ' + text);
  }
  bool addEventSource(const std::string& name, const std::string& path) override {
    return call("add source " + name + ' ' + path);
  }
  bool removeEventSource(const std::string& name) override { return call("remove source " + name); }

  ThreadHandle createThread(std::function<void()> body) override {
    worker = std::move(body);
    return call("thread") ? 8 : 0;
  }
  bool suspend(ThreadHandle h) override { return call("suspend", h); }
  bool resume(ThreadHandle h) override { return call("resume", h); }
  void closeThread(ThreadHandle h) override { call("close thread", h); }
  EventHandle createEvent() override { return call("new event") ? 9 : 0; }
  bool setEvent(EventHandle h) override { return call("set", h); }
  void closeEvent(EventHandle h) override { call("close event", h); }
  void wait(EventHandle h) override {
    call("wait", h);
    worker();
    for (const int code : controls) {
      calls += "-> " + std::to_string(code) + '\n';
      handler_(static_cast<ServiceControlCode>(code));
    }
  }

  WinError lastError() override { return error_; }
  std::string errorMessage(WinError) override { return message; }
  std::string imagePath() override { return call("path") ? "C:\\A B\\pwLapseSvc.exe" : ""; }
  void exit(std::uint32_t code) override { call("exit", code); }
  void terminate(std::uint32_t code) override { call("terminate", code); }

  WinError readValues(service::ServiceValues& values) override {
    values.intervalMs = 4711;
    return call("read values") ? kErrorSuccess : 1009;
  }
  void run(const service::ServiceValues& values) override { call("run", values.intervalMs); }

 private:
  bool call(const std::string& what, std::uintptr_t handle) {
    return call(what + ' ' + std::to_string(handle));
  }
  bool call(const std::string& line) {
    calls += line + '\n';
    const bool works = !line.starts_with(failing);
    if (!works) error_ = kFault;
    return works;
  }

  std::function<void()> worker;
  Handler handler_;
  WinError error_ = 0;
};

// What the program prints for these arguments.
std::string enter(FakeSystem& fake, const std::vector<std::string>& arguments = {}, int code = 0) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(service::enterService(arguments, fake.system(), fake), code);
  return testing::internal::GetCapturedStdout();
}

TEST(ServiceEntry, TakesItsSwitchesInAnyCaseAndWithEitherSign) {
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {{"/INSTALL"}, "path"},          {{"-Install", "-remove"}, "path"},
      {{"/ReMoVe"}, "manager"},        {{""}, "dispatch"},
      {{"install"}, "dispatch"},       {{"-installs"}, "dispatch"},
      {{"x", "-install"}, "dispatch"}, {{}, "dispatch"}};
  for (const auto& [arguments, firstCall] : cases) {
    FakeSystem fake;
    fake.failing = firstCall;
    enter(fake, arguments);
    EXPECT_TRUE(fake.calls.starts_with(firstCall)) << fake.calls;
  }
}

TEST(ServiceEntry, RefusesAnInstallationThatIsNotMeant) {
  const struct {
    std::vector<std::string> options;
    const char* fault;
    const char* failing = "none";
  } cases[] = {
      {{"--acount", "S\\P$"}, "--acount is not known"},
      {{"--work-folder", ""}, "--work-folder needs a value"},
      {{"--delayed-start", "--account"}, "--account needs a value"},
      {{"--account", "S\\P$"}, "--account needs --work-folder"},
      {{"--work-folder", "x", "--account", "S\\Paul"}, "--account: S\\Paul has a password"},
      {{"--delayed-start"}, "no option is taken here", "no setup"},
  };
  for (const auto& c : cases) {
    FakeSystem fake;
    fake.failing = c.failing;
    std::vector<std::string> arguments = {"-install"};
    arguments.insert(arguments.end(), c.options.begin(), c.options.end());
    const std::string printed = enter(fake, arguments, 2);
    EXPECT_TRUE(printed.starts_with(std::string("Not installed: ") + c.fault)) << printed;
    EXPECT_EQ(fake.calls, "");
  }
}

TEST(ServiceInstaller, ShowsTheSystemsErrorTextOnlyWhenItFits) {
  FakeSystem fake;
  fake.message = std::string(240, 'x') + "\r\n";  // 242 + 14 = 256
  EXPECT_EQ(service::lastErrorText(fake), std::string(240, 'x') + " (0x0)");
  for (const std::string& text : {std::string(243, 'x'), std::string()}) {
    fake.message = text;
    EXPECT_EQ(service::lastErrorText(fake), "");
  }
}

TEST(Service, MakesTheCallsOfTheFile) {
  const std::string starting = "status 2, accepts 0, exit 0/0, step ";
  const struct {
    std::string argument;
    std::vector<std::string> failing;  // one case for each: the call, or what else is not well
    std::vector<int> controls = {};
  } cases[] = {
      {"-install", {"nothing", "path", "manager", "create", "start", "connect", "no key"}},
      {"-install", {"identity", "NRVPasswordExpiration into key", "seal"}},
      {"-install --account S\\P$ --work-folder w --delayed-start", {"nothing", "logon"}},
      {"-remove", {"nothing", "manager", "open", "query", "control", "delete", "stopped before"}},
      {"run",
       {"nothing", "dispatch", "register", "new event", "read values", "thread", "status 4"}},
      {"run", {starting + '1', starting + '2', starting + '3'}},
      {"run", {"status 6"}, {2}},
      {"run", {"nothing"}, {2, 2, 4}},
      {"run", {"nothing"}, {3, 2, 3, 2}},
      {"run", {"nothing"}, {5, 128}},
      {"run", {"nothing"}, {1, 2}},
      {"run", {"nothing"}, {2, 1, 3}},
  };
  for (const auto& c : cases) {
    for (const std::string& failing : c.failing) {
      const test_support::TempDir directory;
      const std::string key = failing == "no key" ? "Other" : "NRVPasswordExpiration";
      writeWholeFile(
          "services.reg",
          "REGEDIT4\n[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\" + key + "]\n");
      FakeSystem fake;
      fake.failing = failing;
      fake.controls = c.controls;
      if (failing == "stopped before") fake.installed = ServiceState::Stopped;
      std::istringstream words(c.argument);
      const std::string printed = enter(fake, {std::istream_iterator<std::string>(words), {}});
      std::string seen = fake.calls + "slept " + std::to_string(fake.clock.ticks) + " ms\n";
      seen += printed;
      if (!c.controls.empty()) seen.erase(0, seen.find("wait"));  // it starts as always
      if (c.argument.starts_with("-install")) seen += test_support::readText("services.reg");
      std::string folder = absolutePath("w");
      base::replaceAll(folder, "\\", "\\\\");  // as .reg files have it
      base::replaceAll(seen, '"' + folder + '"', "\"WORK\"");
      std::string heading = c.argument + ", failing: " + failing;
      for (const int code : c.controls) heading += ", control " + std::to_string(code);
      EXPECT_EQ(seen, test_support::sectionOf(SERVICE_TEST_DATA "/service_calls.txt", heading))
          << heading;
    }
  }
}

}  // namespace
