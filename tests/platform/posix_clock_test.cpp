#include <cstdlib>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include "platform/clock.h"

namespace platform {
namespace {

TEST(PosixClock, TimeZoneIsInTermsOfStandardTime) {
  const struct {
    const char* rule;
    int bias;
    bool daylight;
    int total;  // minutes from local time to UTC now
  } cases[] = {
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
  for (const auto& c : cases) {
    setenv("TZ", c.rule, 1);
    const TimeZone got = systemClock().timeZone();
    EXPECT_EQ(got.bias, c.bias) << c.rule;
    EXPECT_EQ(got.daylight, c.daylight) << c.rule;
    EXPECT_EQ(got.bias + (got.daylight ? got.daylightBias : 0), c.total) << c.rule;
  }
  unsetenv("TZ");
}

}  // namespace
}  // namespace platform
