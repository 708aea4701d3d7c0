#include <cstdlib>
#include <ctime>
#include <string>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>

#include "platform/system/clock.h"

namespace platform {
namespace {

TEST(PosixClock, TimeZoneIsInTermsOfStandardTime) {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  // Daylight saving time all the year but for three weeks at the other end of it, so that it is in
  // force now.
  const std::string always = utc.tm_yday < 182 ? ",J320/0,J299/0" : ",J60/0,J39/0";
  // Rule, bias, daylight saving time; minutes from local time to UTC now.
  const std::tuple<std::string, int, bool, int> cases[] = {
      {"UTC0", 0, false, 0},
      {"IST-5:30", -330, false, -330},
      {"EST5EDT" + always, 300, true, 240},
      {"CET-1CEST" + always, -60, true, -120},
  };
  for (const auto& [rule, bias, daylight, total] : cases) {
    setenv("TZ", rule.c_str(), 1);
    const TimeZone got = systemClock().timeZone();
    EXPECT_EQ(got.bias, bias) << rule;
    EXPECT_EQ(got.daylight, daylight) << rule;
    EXPECT_EQ(got.bias + (got.daylight ? got.daylightBias : 0), total) << rule;
  }
  unsetenv("TZ");
}

TEST(PosixClock, TellsTheLocalTimeOfAMoment) {
  const std::pair<std::int64_t, std::int64_t> cases[] = {
      // Seconds since 1970: UTC, and what the clock on the wall showed.
      {1774745999, 1774749599},  // 2026-03-29 01:59:59, a second before summer time
      {1774746000, 1774753200},
      {1792889999, 1792897199},  // 2026-10-25 02:59:59, a second before it ends
      {1792890000, 1792893600},
  };
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  for (const auto& [utc, wall] : cases) {
    const base::LocalTime local = systemClock().localTimeOf((utc + 11'644'473'600) * 10'000'000);
    EXPECT_EQ(base::wallSeconds(local), wall);
    EXPECT_EQ(local.dayOfWeek, 0);
  }
  unsetenv("TZ");
}

}  // namespace
}  // namespace platform
