#include "mail/mime/mail_date.h"

#include <array>
#include <cstdio>
#include <cstdlib>

#include "base/timestamp.h"

namespace kelvado {

std::string formatMailDate(const base::LocalTime& time, const platform::TimeZone& zone) {
  static constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                            "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const bool dayKnown = time.dayOfWeek >= 0 && time.dayOfWeek <= 6;
  const bool monthKnown = time.month >= 1 && time.month <= 12;
  // West of Greenwich the bias is positive. A bias of less than an hour gives "+00" whatever its
  // sign: a zone of -00:30 prints "+0030", which is kept.
  const int bias = zone.bias + (zone.daylight ? zone.daylightBias : 0);
  std::array<char, 128> text;
  std::snprintf(text.data(), text.size(), "%s, %02d %s %d %02d:%02d:%02d %+.2d%.2d",
                kDays[dayKnown ? time.dayOfWeek : 0], time.day,
                kMonths[monthKnown ? time.month - 1 : 0], time.year, time.hour, time.minute,
                time.second, -(bias / 60), std::abs(bias) % 60);
  return text.data();
}

}  // namespace kelvado
