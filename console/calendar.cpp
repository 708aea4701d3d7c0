#include "console/calendar.h"

#include "base/format_text.h"

namespace console {
namespace {

constexpr std::int64_t kMinute = 60, kHour = 60 * kMinute, kDay = 24 * kHour;
constexpr std::int64_t kFileTimePerSecond = 10'000'000;
constexpr std::int64_t kSecondsFrom1601To1970 = 11'644'473'600;

}  // namespace

Calendar::Calendar(platform::Clock& clock)
    : clock_(clock), now_(momentOf(clock.fileTime() / kFileTimePerSecond)) {}

base::LocalTime Calendar::localTime(std::int64_t moment) const {
  return clock_.localTimeOf((moment + kSecondsFrom1601To1970) * kFileTimePerSecond);
}

std::int64_t Calendar::dayOf(std::int64_t moment) const {
  const base::LocalTime time = localTime(moment);
  return base::dayNumber(time.year, time.month, time.day);
}

std::string Calendar::momentText(std::int64_t moment) const {
  const base::LocalTime time = localTime(moment);
  return dayText(dayOf(moment)) + base::formatText(" %02d:%02d", time.hour, time.minute);
}

std::string dayText(std::int64_t day) {
  const base::LocalTime date = base::fromWallSeconds(day * kDay);
  // Made for each of 100,000 users, where printf() would show. No year is before 1601.
  const auto two = [](int number) {
    return std::string{'-', static_cast<char>('0' + number / 10),
                       static_cast<char>('0' + number % 10)};
  };
  return std::to_string(date.year) + two(date.month) + two(date.day);
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
