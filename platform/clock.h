// Time as the operating system tells it. Tests drive a manual clock instead.
#pragma once

#include <cstdint>

namespace platform {

struct LocalTime {
  int year = 1601;
  int month = 1;      // 1..12
  int dayOfWeek = 0;  // 0 Sunday .. 6 Saturday
  int day = 1;
  int hour = 0;
  int minute = 0;
  int second = 0;
};

// GetTimeZoneInformation: UTC = local time + bias.
struct TimeZone {
  int bias = 0;          // minutes
  int daylightBias = 0;  // minutes, to be added to `bias` when `daylight` is true
  bool daylight = false;
};

class Clock {
 public:
  virtual ~Clock() = default;
  virtual LocalTime localTime() = 0;
  virtual TimeZone timeZone() = 0;
  // UTC as a FILETIME: 100 ns units since 1601-01-01.
  virtual std::int64_t fileTime() = 0;
  virtual double uptimeSeconds() = 0;     // since the machine started
  virtual std::uint32_t tickCount() = 0;  // ms, wraps at 2^32
  virtual void sleep(std::uint32_t ms) = 0;
};

// The clock of this machine. Never destroyed; may be used by several threads.
Clock& systemClock();

}  // namespace platform
