// When the service begins its passes at a time of day ("expirationServiceTime"): at that time, and
// each interval from it until the next day's. All times are those of the local clock on the wall
// (base::wallSeconds), so that a change to or from summer time moves no pass.
#pragma once

#include <cstdint>
#include <optional>

namespace service {

inline constexpr std::int64_t kSecondsPerDay = 86400;

struct PassTimes {
  std::int64_t firstSecond = 0;  // of the day
  // Between two passes, above 0. More than a day counts as whole days, rounded up.
  std::int64_t intervalSeconds = kSecondsPerDay;
};

// Which times have had their pass. One rule decides: a pass is due when a time has gone by since
// the last one began. So an overrun, a pause or a suspended machine delays a pass and drops none,
// several times that were missed get one pass, and an hour that comes twice gets no second one.
class PassSchedule {
 public:
  // Once, when the service has started: `lastBegan` is when the last pass began that is on record.
  // Of the times before, only one of today is made up for.
  void start(const PassTimes& times, std::optional<std::int64_t> lastBegan, std::int64_t now);
  void passBegan(std::int64_t now) {
    lastBegan_ = now;
    passedOver_.reset();  // it may be of a clock that was wrong
  }

  bool isDue(const PassTimes& times, std::int64_t now) const;
  // When the next pass begins: `now` when one is due.
  std::int64_t nextBegin(const PassTimes& times, std::int64_t now) const;

 private:
  std::optional<std::int64_t> lastBegan_;
  std::optional<std::int64_t> passedOver_;  // this time and those before get no pass
};

}  // namespace service
