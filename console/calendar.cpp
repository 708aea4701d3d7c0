#include "console/calendar.h"

#include <chrono>

#include "base/format_text.h"

namespace console {
namespace {

constexpr std::int64_t kMinute = 60, kHour = 60 * kMinute, kDay = 24 * kHour;
constexpr std::int64_t kFileTimePerSecond = 10'000'000;
constexpr std::int64_t kSecondsFrom1601To1970 = 11'644'473'600;

std::int64_t biasOf(const platform::TimeZone& zone) {
  return (zone.bias + (zone.daylight ? zone.daylightBias : 0)) * kMinute;
}

std::int64_t daysIn(std::int64_t seconds) {
  return std::chrono::floor<std::chrono::days>(std::chrono::seconds(seconds)).count();
}

}  // namespace

Calendar::Calendar(platform::Clock& clock)
    : now_(momentOf(clock.fileTime() / kFileTimePerSecond)), bias_(biasOf(clock.timeZone())) {}

std::int64_t Calendar::dayOf(std::int64_t moment) const {
  return daysIn(moment - bias_);
}

std::string Calendar::momentText(std::int64_t moment) const {
  const std::int64_t minutes = (moment - bias_ - dayOf(moment) * kDay) / kMinute;
  return dayText(dayOf(moment)) + base::formatText(" %02d:%02d", static_cast<int>(minutes / 60),
                                                   static_cast<int>(minutes % 60));
}

std::string dayText(std::int64_t day) {
  const std::chrono::year_month_day date{std::chrono::sys_days(std::chrono::days(day))};
  return base::formatText("%04d-%02u-%02u", static_cast<int>(date.year()),
                          static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
}

std::string roughSpanText(std::int64_t seconds) {
  const struct {
    std::int64_t length;
    const char* name;
  } units[] = {{kDay, "d"}, {kHour, "h"}, {kMinute, "min"}};
  for (const auto& unit : units) {
    if (seconds < 2 * unit.length) continue;
    return base::formatText("%lld %s", static_cast<long long>(seconds / unit.length), unit.name);
  }
  return base::formatText("%lld s", static_cast<long long>(seconds));
}

std::int64_t momentOf(std::int64_t secondsSince1601) {
  return secondsSince1601 - kSecondsFrom1601To1970;
}

}  // namespace console
