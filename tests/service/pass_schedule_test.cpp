// When a service begins its passes that does so at a time of day: over starts, records, overruns
// and the changes of the clock.
#include "service/pass_schedule.h"

#include <cstdio>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "base/format_text.h"
#include "base/timestamp.h"
#include "tests/support/text_file.h"

namespace service {
namespace {

// "2026-03-28T06:00"
std::int64_t momentOf(const std::string& text) {
  base::LocalTime time;
  EXPECT_EQ(std::sscanf(text.c_str(), "%d-%d-%dT%d:%d", &time.year, &time.month, &time.day,
                        &time.hour, &time.minute),
            5)
      << text;
  return base::wallSeconds(time);
}

std::string textOf(std::int64_t moment) {
  const base::LocalTime time = base::fromWallSeconds(moment);
  return base::formatText(" %02d-%02dT%02d:%02d", time.month, time.day, time.hour, time.minute);
}

// A row: when the service starts, the first time, the interval in hours, the length of a pass in
// minutes, when the last pass on record began ("-": none); a jump of the clock, at which reading by
// how many minutes ("-": none). Then the passes of the next hours.
TEST(PassSchedule, BeginsPassesAtTheTimesOfTheDay) {
  for (const auto& [row, expected] : test_support::readRows(SERVICE_TEST_DATA "/pass_times.txt")) {
    std::istringstream words(row);
    std::string start, first, record, jumpAt;
    int hours = 0, length = 0, lasting = 0, jump = 0;
    words >> start >> first >> hours >> length >> lasting >> record >> jumpAt >> jump;
    const PassTimes times{*base::secondOfDay(first), hours * 3600};
    std::int64_t now = momentOf(start);
    const std::int64_t end = now + lasting * 3600;
    std::optional<std::int64_t> lastBegan;
    if (record != "-") lastBegan = momentOf(record);
    PassSchedule schedule;
    schedule.start(times, lastBegan, now);
    std::string passes;
    for (int busy = 0; now < end;) {  // a minute at a time, as the service looks at its clock
      if (busy > 0) {
        --busy;
      } else if (schedule.isDue(times, now)) {
        EXPECT_EQ(schedule.nextBegin(times, now), now);
        schedule.passBegan(now);
        passes += textOf(now);
        busy = length - 1;
      } else {
        EXPECT_GT(schedule.nextBegin(times, now), now);
      }
      now += 60;
      if (jumpAt != "-" && now == momentOf(jumpAt)) {
        now += jump * 60;
        jumpAt = "-";
      }
    }
    EXPECT_EQ(passes, " " + expected) << row;
  }
}

}  // namespace
}  // namespace service
