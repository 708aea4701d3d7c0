// The time of the operating system. Tests drive a manual clock instead.
#pragma once

#include <cstdint>

#include "base/timestamp.h"

namespace platform {

// GetTimeZoneInformation: UTC = local time + bias.
struct TimeZone {
  int bias = 0;          // minutes
  int daylightBias = 0;  // minutes, to be added to `bias` when `daylight` is true
  bool daylight = false;
};

class Clock {
 public:
  virtual ~Clock() = default;
  virtual base::LocalTime localTime() = 0;
  virtual TimeZone timeZone() = 0;
  // The same for another moment, a FILETIME. Here by the difference that local time and UTC have
  // now; a system's clock knows when that changes.
  virtual base::LocalTime localTimeOf(std::int64_t moment) {
    constexpr std::int64_t kUnitsPerSecond = 10'000'000;
    const std::int64_t past = (fileTime() - moment) / kUnitsPerSecond;
    return base::fromWallSeconds(base::wallSeconds(localTime()) - past);
  }
  // UTC as a FILETIME: 100 ns units since 1601-01-01.
  virtual std::int64_t fileTime() = 0;
  virtual double uptimeSeconds() = 0;     // since the machine started
  virtual std::uint32_t tickCount() = 0;  // ms, wraps at 2^32
  virtual void sleep(std::uint32_t ms) = 0;
};

// The clock of this machine. Never destroyed; may be used by several threads.
Clock& systemClock();

}  // namespace platform
