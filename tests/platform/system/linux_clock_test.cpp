#include <cstdlib>
#include <ctime>
#include <tuple>

#include <gtest/gtest.h>

#include "platform/system/clock.h"

namespace platform {
namespace {

TEST(PosixClock, TimeZoneIsInTermsOfStandardTime) {
  // Rule, bias, daylight saving time; minutes from local time to UTC now.
  const std::tuple<const char*, int, bool, int> cases[] = {
      {"UTC0", 0, false, 0},
      {"IST-5:30", -330, false, -330},
      // Daylight saving time all the year but its first day, so that it is in force now.
      {"EST5EDT,2/0,J1/0", 300, true, 240},
      {"CET-1CEST,2/0,J1/0", -60, true, -120},
  };
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  if (utc.tm_yday < 4) GTEST_SKIP() << "the rules below have no daylight saving time today";
  for (const auto& [rule, bias, daylight, total] : cases) {
    setenv("TZ", rule, 1);
    const TimeZone got = systemClock().timeZone();
    EXPECT_EQ(got.bias, bias) << rule;
    EXPECT_EQ(got.daylight, daylight) << rule;
    EXPECT_EQ(got.bias + (got.daylight ? got.daylightBias : 0), total) << rule;
  }
  unsetenv("TZ");
}

}  // namespace
}  // namespace platform
