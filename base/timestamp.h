// A moment in local time, and its text in the product's logs and reports.
#pragma once

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

// "%2u/%02u/%04u %2u:%02u:%02u": month, day, year, hour, minute, second.
std::string timestampText(const LocalTime& time);

}  // namespace base
