// The service's command line, its installation and its life under a service manager: which calls
// are made in which order, and every text and status on the way, with each call failing in turn.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/expiration_worker.h"
#include "service/service_entry.h"
#include "service/service_installer.h"
#include "tests/support/fake_service_system.h"
#include "tests/support/test_site.h"

namespace {

using service::ServiceValues;
using test_support::FakeServiceSystem;
using testing::ElementsAre;
using testing::ElementsAreArray;
using Lines = std::vector<std::string>;

struct FakeWork : service::ServiceWork {
  platform::WinError readStatus = platform::kErrorSuccess;
  std::uint32_t intervalSeen = 0;
  platform::WinError readValues(ServiceValues& values) override {
    values.intervalMs = 4711;
    return readStatus;
  }
  void run(const ServiceValues& values) override { intervalSeen = values.intervalMs; }
};

constexpr const char* kUsage =
    "NRVPasswordExpiration -install          install service\n"
    "NRVPasswordExpiration -remove           remove service\n";

// What the program prints for these arguments.
std::string enter(FakeServiceSystem& fake, const Lines& arguments, FakeWork work = {}) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(service::enterService(arguments, fake.system(), work), 0);
  return testing::internal::GetCapturedStdout();
}

TEST(ServiceEntry, TakesItsSwitchesInAnyCaseAndWithEitherSign) {
  const struct {
    Lines arguments;
    const char* firstCall;
  } cases[] = {
      {{"/INSTALL"}, "GetModuleFileNameA"},
      {{"-Install", "-remove"}, "GetModuleFileNameA"},
      {{"-remove"}, "OpenSCManagerA connect"},
      {{"/ReMoVe"}, "OpenSCManagerA connect"},
      {{}, "StartServiceCtrlDispatcherA Pwsentry Pro Password Expiration Service"},
      {{""}, "StartServiceCtrlDispatcherA Pwsentry Pro Password Expiration Service"},
      {{"install"}, "StartServiceCtrlDispatcherA Pwsentry Pro Password Expiration Service"},
      {{"-installs"}, "StartServiceCtrlDispatcherA Pwsentry Pro Password Expiration Service"},
      {{"x", "-install"}, "StartServiceCtrlDispatcherA Pwsentry Pro Password Expiration Service"},
  };
  for (const auto& c : cases) {
    FakeServiceSystem fake;
    const std::string printed = enter(fake, c.arguments);
    EXPECT_EQ(fake.calls.at(0), c.firstCall);
    const bool runs = fake.calls.at(0).starts_with("StartService");
    EXPECT_EQ(printed == kUsage, runs) << printed;
  }
}

TEST(ServiceEntry, EndsThroughTheFatalErrorOutsideTheServiceManager) {
  FakeServiceSystem fake;
  fake.failing["StartServiceCtrlDispatcherA"] = 1063;
  EXPECT_EQ(enter(fake, {"-x"}),
            std::string(kUsage) + "In StartServiceCtrlDispatcherError number: 1063\n");
  EXPECT_EQ(fake.calls.back(), "ExitProcess 1063");
  EXPECT_EQ(fake.calls.size(), 2U);
}

TEST(ServiceInstaller, ShowsTheSystemsErrorTextOnlyWhenItFits) {
  FakeServiceSystem fake;
  EXPECT_EQ(service::lastErrorText(fake), "Out of luck. (0x0)");
  fake.message = std::string(240, 'x') + "\r\n";  // 242 + 14 = 256
  EXPECT_EQ(service::lastErrorText(fake), std::string(240, 'x') + " (0x0)");
  fake.message += "y";
  EXPECT_EQ(service::lastErrorText(fake), "");
  fake.message = "";
  EXPECT_EQ(service::lastErrorText(fake), "");
}

constexpr const char* kKey = "SYSTEM\\CurrentControlSet\\Services\\NRVPasswordExpiration";
constexpr const char* kInstalled =
    "Norvyn Password Expiration Service installed.\nNorvyn Password Expiration Service started.\n";

// With one call failing: what is printed and, from that call on, done.
struct TranscriptCase {
  const char* failing;
  std::string printed;
  Lines callsFromThere;
};

TEST(ServiceInstaller, InstallsStepByStep) {
  const std::string key = kKey;
  const Lines all = {
      "GetModuleFileNameA",
      "OpenSCManagerA all",
      "CreateServiceA 1 NRVPasswordExpiration|Norvyn Password Expiration Service|16|2|1|"
      "C:\\Program Files\\pwLapseSvc.exe|",
      "StartServiceA 2",
      "CloseServiceHandle 2",
      "RegConnectRegistryA",
      "RegOpenKeyExA " + key + " all",
      "RegCreateKeyExA " + key,
      "RegSetValueExA Description=Handles password age settings for Norvyn Password Filter",
      "RegCreateKeyExA " + key,
      "RegSetValueExA Start=2",
      "CloseServiceHandle 1"};
  FakeServiceSystem whole;
  EXPECT_EQ(enter(whole, {"-install"}), kInstalled);
  EXPECT_THAT(whole.calls, ElementsAreArray(all));

  const std::string installed = kInstalled;
  const TranscriptCase cases[] = {
      {"GetModuleFileNameA",
       "Unable to install Norvyn Password Expiration Service - Out of luck. (0x4d2)\n",
       {}},
      {"OpenSCManagerA", "OpenSCManager failed - Out of luck. (0x4d2)\n", {}},
      {"CreateServiceA", "CreateService failed - Out of luck. (0x4d2)\n", {"CloseServiceHandle 1"}},
      {"StartServiceA", installed, {all.begin() + 4, all.end()}},
      // The manager's handle stays open.
      {"RegConnectRegistryA",
       installed + "Error connecting to registry.\n\tError number: 1234\n",
       {}},
      {"RegOpenKeyExA", installed + "Error adding service description.\n\tError: 1234\n", {}},
  };
  for (const TranscriptCase& c : cases) {
    SCOPED_TRACE(c.failing);
    FakeServiceSystem fake;
    fake.failing[c.failing] = 1234;
    EXPECT_EQ(enter(fake, {"-install"}), c.printed);
    const auto failed = std::find_if(fake.calls.begin(), fake.calls.end(),
                                     [&](const auto& call) { return call.starts_with(c.failing); });
    EXPECT_THAT(Lines(failed + 1, fake.calls.end()), ElementsAreArray(c.callsFromThere));
  }
}

TEST(ServiceInstaller, RemovesWhateverFails) {
  const std::string stopping = "Stopping service...\n";
  const std::string removed = "Service successfully removed.\n";
  const TranscriptCase cases[] = {
      {"",
       stopping + removed,
       {"OpenSCManagerA connect", "OpenServiceA 1 NRVPasswordExpiration", "QueryServiceStatus 2",
        "ControlService 2 1", "DeleteService 2", "CloseServiceHandle 2", "CloseServiceHandle 1"}},
      {"OpenSCManagerA",
       "Error opening service control database. Error number :1234\n" + stopping + removed,
       {"OpenSCManagerA connect", "OpenServiceA 0 NRVPasswordExpiration", "QueryServiceStatus 2",
        "ControlService 2 1", "DeleteService 2", "CloseServiceHandle 2", "CloseServiceHandle 0"}},
      {"OpenServiceA",
       "Problems removing service. Error number: 1234\n" + stopping + removed,
       {"OpenSCManagerA connect", "OpenServiceA 1 NRVPasswordExpiration", "QueryServiceStatus 0",
        "ControlService 0 1", "DeleteService 0", "CloseServiceHandle 0", "CloseServiceHandle 1"}},
      {"QueryServiceStatus",
       "Problems getting service status. Error number: 1234\n" + stopping + removed,
       {}},
      {"ControlService",
       stopping + "Problems stopping service. Error number: 1234\n" + removed,
       {}},
      {"DeleteService", stopping + "Problems deleting service. Error number: 1234\n", {}},
  };
  for (const TranscriptCase& c : cases) {
    SCOPED_TRACE(c.failing);
    FakeServiceSystem fake;
    if (*c.failing != '\0') fake.failing[c.failing] = 1234;
    EXPECT_EQ(enter(fake, {"-remove"}), c.printed);
    EXPECT_EQ(fake.clock.ticks, 1000U);
    if (!c.callsFromThere.empty()) {
      EXPECT_THAT(fake.calls, ElementsAreArray(c.callsFromThere));
    } else {
      EXPECT_EQ(fake.calls.size(), 7U);
    }
  }
  FakeServiceSystem stopped;
  stopped.installedState = platform::ServiceState::Stopped;
  EXPECT_EQ(enter(stopped, {"-remove"}), removed);
  EXPECT_EQ(stopped.clock.ticks, 0U);
}

std::string status(int state, int exitCode, int checkPoint, int hint) {
  return config::formatText(
      "SetServiceStatus 7: type 16 state %d accepts %d exit %d/0 check %d hint %d", state,
      state == 2 ? 0 : 7, exitCode, checkPoint, hint);
}

// The calls of the service's main routine that follow the dispatcher's.
Lines serve(FakeServiceSystem& fake, FakeWork work = {}) {
  enter(fake, {}, work);
  EXPECT_EQ(fake.calls.back(), "ExitProcess 0");
  return {fake.calls.begin() + 1, fake.calls.end() - 1};
}

const Lines kStartUp = {
    "RegisterServiceCtrlHandlerA Pwsentry Pro Password Expiration Service",
    status(2, 0, 1, 5000),
    "CreateEventA",
    status(2, 0, 2, 1000),
    status(2, 0, 3, 5000),
    "CreateThread",
    status(4, 0, 0, 0),
};

TEST(ServiceMain, StartsReportsRunsAndCleansUp) {
  FakeServiceSystem fake;
  FakeWork work;
  service::enterService({}, fake.system(), work);
  Lines expected = kStartUp;
  expected.insert(expected.begin(), fake.calls[0]);
  for (const std::string& call : Lines{"WaitForSingleObject 9", "CloseEvent 9", status(1, 0, 0, 0),
                                       "CloseThread 8", "ExitProcess 0"}) {
    expected.push_back(call);
  }
  EXPECT_THAT(fake.calls, ElementsAreArray(expected));
}

TEST(ServiceMain, CleansUpWithTheErrorOfWhatFailed) {
  const std::string stopped = status(1, 55, 0, 0);
  const struct {
    const char* failing;
    std::size_t callsBefore;  // of the start-up, with the failing one
    Lines after;
  } cases[] = {
      {"RegisterServiceCtrlHandlerA", 1, {}},  // nothing to report to
      {"SetServiceStatus 1", 2, {"SetEvent 0", stopped}},
      {"CreateEventA", 3, {stopped}},
      {"SetServiceStatus 2", 4, {"SetEvent 9", "CloseEvent 9", stopped}},
      {"SetServiceStatus 3", 5, {"SetEvent 9", "CloseEvent 9", stopped}},
      {"CreateThread", 6, {"CloseEvent 9", stopped}},
      {"SetServiceStatus 4", 7, {"SetEvent 9", "CloseEvent 9", stopped, "CloseThread 8"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.failing);
    FakeServiceSystem fake;
    fake.failing[c.failing] = 55;
    Lines expected(kStartUp.begin(), kStartUp.begin() + static_cast<long>(c.callsBefore));
    expected.insert(expected.end(), c.after.begin(), c.after.end());
    EXPECT_THAT(serve(fake), ElementsAreArray(expected));
  }
  FakeServiceSystem fake;
  FakeWork work;
  work.readStatus = 1009;
  EXPECT_THAT(serve(fake, work), testing::Contains(status(1, 1009, 0, 0)));
  EXPECT_THAT(fake.calls, testing::Not(testing::Contains("CreateThread")));
}

TEST(ServiceMain, AnswersControls) {
  const struct {
    const char* what;
    std::vector<int> controls;
    Lines answers;  // to the last control
  } cases[] = {
      {"stop", {1}, {status(3, 0, 1, 5000), "SetEvent 9"}},
      {"pause", {2}, {status(6, 0, 1, 1000), "SuspendThread 8", status(7, 0, 0, 0)}},
      {"pause while paused", {2, 2}, {status(0, 0, 0, 0)}},
      {"pause after stop", {1, 2}, {status(0, 0, 0, 0)}},
      {"continue", {2, 3}, {status(5, 0, 1, 1000), "ResumeThread 8", status(4, 0, 0, 0)}},
      {"continue while running", {3}, {status(0, 0, 0, 0)}},
      {"continue after stop while paused", {2, 1, 3}, {status(0, 0, 0, 0)}},
      {"pause again", {2, 3, 2}, {status(6, 0, 1, 1000), "SuspendThread 8", status(7, 0, 0, 0)}},
      {"interrogate", {4}, {status(4, 0, 0, 0)}},
      {"interrogate while paused", {2, 4}, {status(4, 0, 0, 0)}},
      {"shutdown", {5}, {}},
      {"unknown", {128}, {status(0, 0, 0, 0)}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    FakeServiceSystem fake;
    fake.controls = c.controls;
    const Lines calls = serve(fake);
    const auto last = std::find_if(calls.rbegin(), calls.rend(),
                                   [](const auto& call) { return call.starts_with("control "); });
    Lines expected = c.answers;
    expected.insert(expected.end(), {"CloseEvent 9", status(1, 0, 0, 0), "CloseThread 8"});
    EXPECT_THAT(Lines(last.base(), calls.end()), ElementsAreArray(expected));
  }
}

TEST(ServiceMain, AStatusThatIsNotTakenStopsTheService) {
  FakeServiceSystem fake;
  fake.failing["SetServiceStatus 5"] = 13;
  fake.controls = {4};
  EXPECT_THAT(serve(fake), testing::Contains("SetEvent 9"));
}

TEST(ServiceMain, GivesTheWorkerTheValuesThatItRead) {
  FakeWork work;
  // The worker runs while the service waits.
  struct RunningSystem : FakeServiceSystem {
    void wait(platform::EventHandle) override { workerBody(); }
  } running;
  service::enterService({}, running.system(), work);
  EXPECT_EQ(work.intervalSeen, 4711U);
}

// Ends the worker at the third sleep.
struct EndingClock : test_support::ManualClock {
  struct End {};
  std::vector<std::uint32_t> sleeps;
  void sleep(std::uint32_t ms) override {
    sleeps.push_back(ms);
    if (sleeps.size() == 3) throw End();
  }
};

TEST(ExpirationWorker, WaitsForTheMachineThenPassesAndSleepsForEver) {
  test_support::TestSite site;
  site.policy("DefaultPolicy", 42);
  site.setting("expirationDelay", 5);
  site.user({"walter", 10});
  site.writeOut();
  std::string error;
  const auto system = platform::makeSystemHost({"site.reg", ""}, error);
  ASSERT_NE(system, nullptr) << error;
  EndingClock clock;
  clock.uptime = 60;
  platform::Host real = system->host();
  EXPECT_THROW(service::runForEver({real.registry, real.accounts, real.directory, clock}, {}),
               EndingClock::End);
  // Milliseconds less seconds, then the delay in seconds, read again after each pass.
  EXPECT_THAT(clock.sleeps, ElementsAre(479940U, 5000U, 5000U));
}

}  // namespace
