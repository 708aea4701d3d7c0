#include "console/calendar.h"

#include "base/format_text.h"

namespace console {
namespace {

// No time zone's day begins within a quarter of an hour of UTC.
constexpr std::int64_t kQuarterHour = 15 * 60;
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
  const auto [place, isNew] = days_.try_emplace(moment / kQuarterHour);
  if (isNew) {
    const base::LocalTime time = localTime(moment);
    place->second = base::dayNumber(time.year, time.month, time.day);
  }
  return place->second;
}

std::string Calendar::momentText(std::int64_t moment) const {
  const base::LocalTime time = localTime(moment);
  return dayText(dayOf(moment)) + base::formatText(" %02d:%02d", time.hour, time.minute);
}

std::string dayText(std::int64_t day) {
  const base::LocalTime date = base::fromWallSeconds(day * kDay);
  // Made for each of 100,000 users, where printf() would show. No year is before 1601.
  std::string text = std::to_string(date.year);
  for (const int number : {date.month, date.day}) {
    text += '-';
    text += static_cast<char>('0' + number / 10);
    text += static_cast<char>('0' + number % 10);
  }
  return text;
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
