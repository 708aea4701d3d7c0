// Times and dates as people read them: in the local time of the machine.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

#include "platform/system/clock.h"

namespace console {

// Moments are seconds since 1970-01-01, UTC; days are local ones since then.
class Calendar {
 public:
  // `clock` is borrowed.
  explicit Calendar(platform::Clock& clock);

  std::int64_t now() const { return now_; }
  std::int64_t today() const { return dayOf(now_); }
  std::int64_t dayOf(std::int64_t moment) const;
  std::string momentText(std::int64_t moment) const;  // "2026-11-22 01:46"

 private:
  base::LocalTime localTime(std::int64_t moment) const;

  platform::Clock& clock_;
  std::int64_t now_;
  // By quarter of an hour: asking the clock takes longer, and users are many.
  mutable std::unordered_map<std::int64_t, std::int64_t> days_;
};

std::string dayText(std::int64_t day);  // "2026-11-22"
// "45 s", "12 min", "26 h", "3 d": rounded down, in a unit of which there are at least two.
std::string roughSpanText(std::int64_t seconds);
// A moment of the directory, which counts seconds from 1601.
std::int64_t momentOf(std::int64_t secondsSince1601);

}  // namespace console
