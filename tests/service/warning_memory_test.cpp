// When a warning is due in a pass that remembers the earlier ones.
#include "service/warning_memory.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/system/files.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_dir.h"

namespace service {
namespace {

struct Step {
  const char* what;
  int daysLeft;
  bool due;
  bool accepted = true;  // the mail, when one is due
  int day = 5;           // of the month
  std::int64_t passwordSet = 1000;
  bool notified = false;  // that the password has expired, before this pass
  int maxAge = 42;
};

void live(const std::array<std::int32_t, 3>& warningDays, const std::vector<Step>& steps) {
  const test_support::TempDir directory;
  platform::createDirectory("logfiles");
  test_support::ManualClock clock;
  config::ExpirationSettings settings;
  settings.rememberWarnings = settings.expireOnlyNotified = true;
  settings.warnings = warningDays;
  for (const Step& step : steps) {  // each is a pass of its own
    clock.local.day = step.day;
    config::Findings findings;
    WarningMemory memory;
    memory.open(settings, false, clock, findings);
    ASSERT_EQ(memory.state(), WarningMemory::State::Ready);
    notify::UserRecord user;
    user.username = "anna";
    user.passwordSet = step.passwordSet;
    user.maxAge = step.maxAge;
    user.age = static_cast<std::uint32_t>(step.maxAge - step.daysLeft);
    EXPECT_EQ(memory.isNotified(user), step.notified) << step.what;
    EXPECT_EQ(memory.isDue(user), step.due) << step.what;
    if (step.due && step.accepted) memory.mailed(user);
    memory.finish();
    EXPECT_EQ(findings.problems().count + findings.notes().count, 0U) << step.what;
  }
}

TEST(WarningMemory, WarnsOnceForEachDayAndCatchesUp) {
  live({14, 7, 1}, {
                       {"above the first day", 15, false},
                       {"missed the first day", 13, true},
                       {"once for the first day", 12, false},
                       {"the second day, refused", 7, true, false},
                       {"tried again", 6, true},
                       {"a second pass of that day", 6, false},
                       {"expired before the last day", 0, true},
                       {"expired, and mailed", -1, false, true, 5, 1000, true},
                       {"expired by another maximum age", 0, false, true, 5, 1000, false, 60},
                       {"a new password", 7, true, true, 5, 90 * 86400},
                   });
  live({}, {
               {"without warning days", 9, true},
               {"a second pass of that day", 9, false},
               {"the next day", 8, true, true, 6},
           });
}

TEST(WarningMemory, HoldsWarningsBackWhenItCannotRecordThem) {
  const test_support::TempDir directory;  // without the folder of the logs
  test_support::ManualClock clock;
  config::ExpirationSettings settings;
  settings.rememberWarnings = true;
  for (const bool clockIsWrong : {false, true}) {
    config::Findings findings;
    WarningMemory memory;
    memory.open(settings, clockIsWrong, clock, findings);
    EXPECT_EQ(memory.state(), WarningMemory::State::Held);
    EXPECT_EQ(findings.problems().count, 1U);
  }
}

}  // namespace
}  // namespace service
