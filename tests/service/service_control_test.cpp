// The service's command line, its installation and its life under a service manager that records
// every call: which calls are made in which order, with every text and status, and each call
// failing in turn.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/format_text.h"
#include "platform/registry/file/reg_registry.h"
#include "platform/system/files.h"
#include "service/service_entry.h"
#include "service/service_installer.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace platform;
using testing::EndsWith;
using testing::HasSubstr;

constexpr WinError kFault = 1234;  // "(0x4d2)"

using Handler = std::function<void(ServiceControlCode)>;

struct FakeSystem : ServiceControl, WorkerThreads, Process, service::ServiceWork {
  std::string calls;             // a line for each
  std::string failing = "none";  // how the line of the failing call begins
  std::vector<int> controls;     // what comes while the service waits
  ServiceState installed = ServiceState::Running;
  std::string message = "Out of luck.\r\n";
  test_support::ManualClock clock;
  WinError readStatus = kErrorSuccess;
  std::uint32_t intervalSeen = 0;

  service::ServiceSystem system() { return {*this, *this, *this, clock}; }

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
    return call(base::formatText("status %u,%u,%u,%u,%u,%u,%u to %d", s.type,
                                 static_cast<unsigned>(s.state), s.controlsAccepted, s.exitCode,
                                 s.serviceSpecificCode, s.checkPoint, s.waitHint,
                                 static_cast<int>(handle)));
  }
  ServiceHandle openManager(ManagerAccess access) override {
    return call(access == ManagerAccess::All ? "manager all" : "manager connect") ? 1 : 0;
  }
  ServiceHandle createService(ServiceHandle manager, const NewService& s) override {
    return call(base::formatText("create %d %s|%s|%s|%s|%u%u%u", static_cast<int>(manager),
                                 s.name.c_str(), s.displayName.c_str(), s.imagePath.c_str(),
                                 s.dependencies.c_str(), s.type, s.startType, s.errorControl))
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
  void closeHandle(ServiceHandle h) override { call("close", h); }
  // A registry file of the test stands for the manager's.
  WinError connectRegistry(std::unique_ptr<Registry>& registry) override {
    std::string error;
    registry = RegRegistry::load("services.reg", error);
    return call("connect registry") ? kErrorSuccess : kFault;
  }

  ThreadHandle createThread(std::function<void()> body) override {
    worker = std::move(body);
    return call("thread") ? 8 : 0;
  }
  bool suspend(ThreadHandle h) override { return call("suspend", h); }
  bool resume(ThreadHandle h) override { return call("resume", h); }
  void closeThread(ThreadHandle h) override { call("close thread", h); }
  EventHandle createEvent() override { return call("event") ? 9 : 0; }
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
    return readStatus;
  }
  void run(const service::ServiceValues& values) override { intervalSeen = values.intervalMs; }

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
std::string enter(FakeSystem& fake, const std::vector<std::string>& arguments = {}) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(service::enterService(arguments, fake.system(), fake), 0);
  return testing::internal::GetCapturedStdout();
}

const std::string kUsage =
    "NRVPasswordExpiration -install          install service\n"
    "NRVPasswordExpiration -remove           remove service\n";

TEST(ServiceEntry, TakesItsSwitchesInAnyCaseAndWithEitherSign) {
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {{"/INSTALL"}, "path"},         {{"-Install", "-remove"}, "path"},
      {{"/ReMoVe"}, "manager"},       {{""}, "dispatch"},
      {{"install"}, "dispatch"},      {{"-installs"}, "dispatch"},
      {{"x", "-install"}, "dispatch"}};
  for (const auto& [arguments, firstCall] : cases) {
    FakeSystem fake;
    fake.failing = firstCall;
    const std::string printed = enter(fake, arguments);
    EXPECT_TRUE(fake.calls.starts_with(firstCall)) << fake.calls;
    if (*firstCall != 'd') continue;
    EXPECT_EQ(printed, kUsage + "In StartServiceCtrlDispatcherError number: 1234\n");
    EXPECT_EQ(fake.calls, "dispatch Pwsentry Pro Password Expiration Service\nexit 1234\n");
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

struct Transcript {
  const char* failing;
  std::string printed;
  std::string lastCalls;
};

TEST(ServiceInstaller, InstallsStepByStep) {
  const std::string name = "Norvyn Password Expiration Service";
  const std::string done = name + " installed.\n" + name + " started.\n";
  const std::string create =
      "create 1 NRVPasswordExpiration|" + name + "|C:\\A B\\pwLapseSvc.exe||1621\n";
  const Transcript cases[] = {
      {"none", done,
       "path\nmanager all\n" + create + "start 2\nclose 2\nconnect registry\nclose 1\n"},
      {"path", "Unable to install " + name + " - Out of luck. (0x4d2)\n", "path\n"},
      {"manager", "OpenSCManager failed - Out of luck. (0x4d2)\n", "manager all\n"},
      {"create", "CreateService failed - Out of luck. (0x4d2)\n", create + "close 1\n"},
      {"start", done, "start 2\nclose 2\nconnect registry\nclose 1\n"},
      // From here on the manager's handle stays open.
      {"connect", done + "Error connecting to registry.\n\tError number: 1234\n",
       "close 2\nconnect registry\n"},
      {"no key", done + "Error adding service description.\n\tError: 2\n",
       "close 2\nconnect registry\n"},
  };
  for (const Transcript& c : cases) {
    SCOPED_TRACE(c.failing);
    const test_support::TempDir directory;
    const std::string key = std::string(c.failing) == "no key" ? "Other" : "NRVPasswordExpiration";
    writeWholeFile(
        "services.reg",
        "REGEDIT4\n[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\" + key + "]\n");
    FakeSystem fake;
    fake.failing = c.failing;
    EXPECT_EQ(enter(fake, {"-install"}), c.printed);
    EXPECT_THAT(fake.calls, EndsWith(c.lastCalls));
    std::string text;
    readWholeFile("services.reg", text);
    const bool described = text.find(
                               "\"Description\"=\"Handles password age settings for Norvyn "
                               "Password Filter\"") != std::string::npos &&
                           text.find("\"Start\"=dword:00000002") != std::string::npos;
    EXPECT_EQ(described, c.lastCalls.ends_with("registry\nclose 1\n")) << text;
  }
}

TEST(ServiceInstaller, RemovesWhateverFails) {
  const std::string stop = "Stopping service...\n";
  const std::string removed = "Service successfully removed.\n";
  const std::string open = "open 1 NRVPasswordExpiration\n";
  const std::string rest = "query 2\ncontrol 1 2\ndelete 2\nclose 2\nclose 1\n";
  const Transcript cases[] = {
      {"none", stop + removed, "manager connect\n" + open + rest},
      {"manager", "Error opening service control database. Error number :1234\n" + stop + removed,
       "open 0 NRVPasswordExpiration\nquery 2\ncontrol 1 2\ndelete 2\nclose 2\nclose 0\n"},
      {"open", "Problems removing service. Error number: 1234\n" + stop + removed,
       open + "query 0\ncontrol 1 0\ndelete 0\nclose 0\nclose 1\n"},
      {"query", "Problems getting service status. Error number: 1234\n" + stop + removed, rest},
      {"control", stop + "Problems stopping service. Error number: 1234\n" + removed, rest},
      {"delete", stop + "Problems deleting service. Error number: 1234\n", rest},
      {"stopped", removed, open + "query 2\ndelete 2\nclose 2\nclose 1\n"},
  };
  for (const Transcript& c : cases) {
    SCOPED_TRACE(c.failing);
    FakeSystem fake;
    fake.failing = c.failing;
    if (c.printed == removed) fake.installed = ServiceState::Stopped;
    EXPECT_EQ(enter(fake, {"-remove"}), c.printed);
    EXPECT_THAT(fake.calls, EndsWith(c.lastCalls));
    EXPECT_EQ(fake.clock.ticks, c.printed == removed ? 0U : 1000U);
  }
}

std::string status(int state, int exitCode = 0, int checkPoint = 0, int hint = 0) {
  return base::formatText("status 16,%d,%d,%d,0,%d,%d to 7\n", state, state == 2 ? 0 : 7, exitCode,
                          checkPoint, hint);
}

TEST(ServiceMain, StartsRunsAndCleansUpWithTheErrorOfWhatFailed) {
  const std::string up[] = {"register Pwsentry Pro Password Expiration Service\n",
                            status(2, 0, 1, 5000),
                            "event\n",
                            status(2, 0, 2, 1000),
                            status(2, 0, 3, 5000),
                            "thread\n",
                            status(4)};
  const std::string stopped = status(1, kFault);
  const std::pair<std::size_t, std::string> cases[] = {
      {0, ""},  // nothing to report to
      {1, "set 0\n" + stopped},
      {2, stopped},
      {3, "set 9\nclose event 9\n" + stopped},
      {4, "set 9\nclose event 9\n" + stopped},
      {5, "close event 9\n" + stopped},
      {6, "set 9\nclose event 9\n" + stopped + "close thread 8\n"},
      {7, "wait 9\nclose event 9\n" + status(1) + "close thread 8\n"},  // nothing fails
  };
  for (const auto& [failing, after] : cases) {
    FakeSystem fake;
    std::string expected = "dispatch Pwsentry Pro Password Expiration Service\n";
    for (std::size_t i = 0; i < std::size(up) && i <= failing; ++i) expected += up[i];
    if (failing < std::size(up)) fake.failing = up[failing].substr(0, up[failing].size() - 1);
    enter(fake);
    EXPECT_EQ(fake.calls, expected + after + "terminate 0\n");
    EXPECT_EQ(fake.intervalSeen, failing < std::size(up) ? 0U : 4711U);
  }
  FakeSystem fake;
  fake.readStatus = 1009;
  enter(fake);
  EXPECT_THAT(fake.calls, EndsWith("close event 9\n" + status(1, 1009) + "terminate 0\n"));
}

TEST(ServiceMain, AnswersControls) {
  const std::string paused = status(6, 0, 1, 1000) + "suspend 8\n" + status(7);
  const std::string resumed = status(5, 0, 1, 1000) + "resume 8\n" + status(4);
  const std::string stopping = status(3, 0, 1, 5000) + "set 9\n";
  const std::pair<std::vector<int>, std::string> cases[] = {
      {{2, 2, 4}, "-> 2\n" + paused + "-> 2\n" + status(0) + "-> 4\n" + status(4)},
      {{3, 2, 3, 2},
       "-> 3\n" + status(0) + "-> 2\n" + paused + "-> 3\n" + resumed + "-> 2\n" + paused},
      {{5, 128}, "-> 5\n-> 128\n" + status(0)},
      {{1, 2}, "-> 1\n" + stopping + "-> 2\n" + status(0)},
      {{2, 1, 3}, "-> 2\n" + paused + "-> 1\n" + stopping + "-> 3\n" + status(0)},
  };
  for (const auto& [controls, answers] : cases) {
    FakeSystem fake;
    fake.controls = controls;
    enter(fake);
    EXPECT_THAT(fake.calls, HasSubstr("wait 9\n" + answers + "close event 9\n"));
  }
  FakeSystem fake;  // a status that is not taken stops the service
  fake.controls = {2};
  fake.failing = "status 16,6";
  enter(fake);
  EXPECT_THAT(fake.calls, HasSubstr(status(6, 0, 1, 1000) + "set 9\n"));
}

}  // namespace
