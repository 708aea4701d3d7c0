// A clock that stands still until a test moves it. Local time is UTC.
#pragma once

#include <cstdint>

#include "base/timestamp.h"
#include "platform/system/clock.h"

namespace test_support {

inline constexpr std::int64_t kFileTimeDay = 864000000000;  // 100 ns units
inline constexpr std::int64_t kFileTimeSecond = 10000000;

class ManualClock : public platform::Clock {
 public:
  base::LocalTime local{2026, 3, 4, 5, 9, 7, 3};  // Thursday, 5 March 2026, 09:07:03
  platform::TimeZone zone;
  std::int64_t now = 134171752230000000;  // the same
  double uptime = 100000;
  std::uint32_t ticks = 0;

  base::LocalTime localTime() override { return local; }
  platform::TimeZone timeZone() override { return zone; }
  std::int64_t fileTime() override { return now; }
  double uptimeSeconds() override { return uptime; }
  std::uint32_t tickCount() override { return ticks; }
  void sleep(std::uint32_t ms) override { ticks += ms; }
};

}  // namespace test_support
