#include "base/timestamp.h"

#include <charconv>
#include <chrono>
#include <cstddef>
#include <string_view>

#include "base/format_text.h"

namespace base {
namespace {

constexpr std::int64_t kSecondsPerDay = 86400;
constexpr int kSecondsPerHour = 3600;
constexpr int kSecondsPerMinute = 60;

// A number of one or two digits; -1 for another text.
int smallNumber(std::string_view text) {
  int number = -1;
  const char* const end = text.data() + text.size();
  if (text.empty() || text.size() > 2 || text.front() == '-') return -1;
  return std::from_chars(text.data(), end, number).ptr == end ? number : -1;
}

}  // namespace

std::int64_t dayNumber(int year, int month, int day) {
  const std::chrono::year_month_day date{std::chrono::year(year),
                                         std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day))};
  return std::chrono::sys_days(date).time_since_epoch().count();
}

std::int64_t wallSeconds(const LocalTime& time) {
  return dayNumber(time.year, time.month, time.day) * kSecondsPerDay +
         std::int64_t{time.hour} * kSecondsPerHour + std::int64_t{time.minute} * kSecondsPerMinute +
         time.second;
}

LocalTime fromWallSeconds(std::int64_t seconds) {
  const std::chrono::sys_seconds moment{std::chrono::seconds(seconds)};
  const auto day = std::chrono::floor<std::chrono::days>(moment);
  const std::chrono::year_month_day date{day};
  const std::chrono::hh_mm_ss<std::chrono::seconds> clock{moment - day};
  return {static_cast<int>(date.year()),
          static_cast<int>(static_cast<unsigned>(date.month())),
          static_cast<int>(std::chrono::weekday(day).c_encoding()),
          static_cast<int>(static_cast<unsigned>(date.day())),
          static_cast<int>(clock.hours().count()),
          static_cast<int>(clock.minutes().count()),
          static_cast<int>(clock.seconds().count())};
}

std::optional<int> secondOfDay(const std::string& text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string::npos || text.size() - colon != 3) return {};
  const int hour = smallNumber(std::string_view(text).substr(0, colon));
  const int minute = smallNumber(std::string_view(text).substr(colon + 1));
  if (hour < 0 || hour > 23 || minute < 0 || minute > 59) return {};
  return hour * kSecondsPerHour + minute * kSecondsPerMinute;
}

std::string timestampText(const LocalTime& time) {
  return formatText("%2u/%02u/%04u %2u:%02u:%02u", static_cast<unsigned>(time.month),
                    static_cast<unsigned>(time.day), static_cast<unsigned>(time.year),
                    static_cast<unsigned>(time.hour), static_cast<unsigned>(time.minute),
                    static_cast<unsigned>(time.second));
}

}  // namespace base
