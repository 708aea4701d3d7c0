// A moment in local time, and its text in the product's logs and reports.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace base {

struct LocalTime {
  int year = 1601;
  int month = 1;      // 1..12
  int dayOfWeek = 0;  // 0 Sunday .. 6 Saturday
  int day = 1;
  int hour = 0;
  int minute = 0;
  int second = 0;
};

// The day's number, counted from 1 January 1970; of a date that is in the calendar.
std::int64_t dayNumber(int year, int month, int day);
// What a clock on the wall shows, as seconds since it showed the first of January 1970, 00:00. They
// jump when the clock is changed.
std::int64_t wallSeconds(const LocalTime& time);
LocalTime fromWallSeconds(std::int64_t seconds);

// Seconds from midnight to "HH:MM", 00:00 to 23:59; nothing for another text.
std::optional<int> secondOfDay(const std::string& text);

// "%2u/%02u/%04u %2u:%02u:%02u": month, day, year, hour, minute, second.
std::string timestampText(const LocalTime& time);

}  // namespace base
