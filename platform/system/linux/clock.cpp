// The clock of this machine. A change of the machine's time zone is followed while it runs.
#include "platform/system/clock.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <initializer_list>

#include "base/timestamp.h"

namespace platform {
namespace {

constexpr std::int64_t kUnixEpochAsFileTime = 116'444'736'000'000'000;
constexpr std::int64_t kFileTimeUnitsPerSecond = 10'000'000;
constexpr long kNanosecondsPerSecond = 1'000'000'000;

timespec now(clockid_t id) {
  timespec time{};
  clock_gettime(id, &time);
  return time;
}

std::tm brokenDown(std::time_t time) {
  std::tm local{};
  localtime_r(&time, &local);
  return local;
}

// For how long what was read of the time zone holds: a change is followed within a second. Reading
// it for each mail would show: it looks at a file, and in summer for the end of it.
struct ZoneAge {
  std::time_t second = -1;
  const char* variable = nullptr;  // a new value has a new place

  static ZoneAge at(std::time_t second) { return {second, std::getenv("TZ")}; }
  bool operator==(const ZoneAge&) const = default;
};

void refreshTimeZone(std::time_t second) {
  thread_local ZoneAge read;
  const ZoneAge age = ZoneAge::at(second);
  if (read == age) return;
  tzset();
  read = age;
}

base::LocalTime localTimeAt(std::time_t time) {
  refreshTimeZone(now(CLOCK_REALTIME).tv_sec);
  const std::tm local = brokenDown(time);
  return {local.tm_year + 1900, local.tm_mon + 1, local.tm_wday, local.tm_mday,
          local.tm_hour,        local.tm_min,     local.tm_sec};
}

// The nearest moment, within a year, at which daylight saving time is not in force; `time` itself
// when there is none.
std::tm standardTime(std::time_t time) {
  constexpr std::time_t kStepDays = 7;
  constexpr std::time_t kDaysPerYear = 366;
  constexpr std::time_t kSecondsPerDay = 86400;
  for (std::time_t days = 0; days <= kDaysPerYear; days += kStepDays) {
    for (const int sign : {1, -1}) {
      const std::tm local = brokenDown(time + sign * days * kSecondsPerDay);
      if (local.tm_isdst <= 0) return local;
    }
  }
  return brokenDown(time);
}

TimeZone timeZoneAt(std::time_t time) {
  constexpr long kSecondsPerMinute = 60;
  constexpr int kUsualDaylightBias = -60;
  const std::tm local = brokenDown(time);
  const std::tm standard = standardTime(time);
  TimeZone zone;
  zone.bias = static_cast<int>(-standard.tm_gmtoff / kSecondsPerMinute);
  zone.daylight = local.tm_isdst > 0;
  zone.daylightBias =
      zone.daylight ? static_cast<int>((standard.tm_gmtoff - local.tm_gmtoff) / kSecondsPerMinute)
                    : kUsualDaylightBias;
  return zone;
}

class PosixClock final : public Clock {
 public:
  base::LocalTime localTime() override { return localTimeAt(now(CLOCK_REALTIME).tv_sec); }

  base::LocalTime localTimeOf(std::int64_t moment) override {
    return localTimeAt((moment - kUnixEpochAsFileTime) / kFileTimeUnitsPerSecond);
  }

  TimeZone timeZone() override {
    thread_local ZoneAge known;
    thread_local TimeZone zone;
    const std::time_t time = now(CLOCK_REALTIME).tv_sec;
    const ZoneAge age = ZoneAge::at(time);
    if (known == age) return zone;
    refreshTimeZone(time);
    zone = timeZoneAt(time);
    known = age;
    return zone;
  }

  std::int64_t fileTime() override {
    const timespec time = now(CLOCK_REALTIME);
    return kUnixEpochAsFileTime + time.tv_sec * kFileTimeUnitsPerSecond + time.tv_nsec / 100;
  }

  double uptimeSeconds() override {
    const timespec time = now(CLOCK_BOOTTIME);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
  }

  std::uint32_t tickCount() override {
    const timespec time = now(CLOCK_MONOTONIC);
    return static_cast<std::uint32_t>(time.tv_sec * 1000 + time.tv_nsec / 1'000'000);
  }

  void sleep(std::uint32_t ms) override {
    // Until a fixed moment, so that signals in between neither shorten nor lengthen it.
    timespec until = now(CLOCK_MONOTONIC);
    until.tv_sec += ms / 1000;
    until.tv_nsec += static_cast<long>(ms % 1000) * 1'000'000;
    if (until.tv_nsec >= kNanosecondsPerSecond) {
      until.tv_sec += 1;
      until.tv_nsec -= kNanosecondsPerSecond;
    }
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
  }
};

}  // namespace

Clock& systemClock() {
  static Clock& clock = *new PosixClock;  // outlives every thread that may still ask for the time
  return clock;
}

}  // namespace platform
