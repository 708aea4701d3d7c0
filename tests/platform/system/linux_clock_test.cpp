#include <cstdlib>
#include <ctime>
#include <string>
#include <tuple>

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

}  // namespace
}  // namespace platform
