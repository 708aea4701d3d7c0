#include "platform/system/clock.h"

#include <windows.h>

#include "base/timestamp.h"

namespace platform {
namespace {

base::LocalTime timeOf(const SYSTEMTIME& time) {
  return {time.wYear, time.wMonth,  time.wDayOfWeek, time.wDay,
          time.wHour, time.wMinute, time.wSecond};
}

class WindowsClock final : public Clock {
 public:
  base::LocalTime localTime() override {
    SYSTEMTIME now{};
    GetLocalTime(&now);
    return timeOf(now);
  }

  base::LocalTime localTimeOf(std::int64_t moment) override {
    const FILETIME time{static_cast<DWORD>(moment), static_cast<DWORD>(moment >> 32)};
    SYSTEMTIME utc{};
    SYSTEMTIME local{};
    if (FileTimeToSystemTime(&time, &utc) == 0 ||
        SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local) == 0) {
      return Clock::localTimeOf(moment);
    }
    return timeOf(local);
  }

  TimeZone timeZone() override {
    TIME_ZONE_INFORMATION information{};
    const DWORD which = GetTimeZoneInformation(&information);
    TimeZone zone;
    // A zone without daylight saving time has no use for its StandardBias.
    zone.bias = static_cast<int>(information.Bias);
    if (which == TIME_ZONE_ID_STANDARD) zone.bias += static_cast<int>(information.StandardBias);
    zone.daylightBias = static_cast<int>(information.DaylightBias);
    zone.daylight = which == TIME_ZONE_ID_DAYLIGHT;
    return zone;
  }

  std::int64_t fileTime() override {
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    return static_cast<std::int64_t>(now.dwHighDateTime) << 32 | now.dwLowDateTime;
  }

  double uptimeSeconds() override {
    LARGE_INTEGER count{};
    LARGE_INTEGER frequency{};
    QueryPerformanceCounter(&count);
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(count.QuadPart) / static_cast<double>(frequency.QuadPart);
  }

  std::uint32_t tickCount() override { return GetTickCount(); }

  void sleep(std::uint32_t ms) override { Sleep(ms); }
};

}  // namespace

Clock& systemClock() {
  static Clock& clock = *new WindowsClock;  // outlives every thread that may still ask for the time
  return clock;
}

}  // namespace platform
