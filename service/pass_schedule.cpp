#include "service/pass_schedule.h"

#include <algorithm>

namespace service {
namespace {

// The most that a clock is set back when summer time ends. A moment that is further ahead comes of
// a clock that was wrong, and says nothing.
constexpr std::int64_t kLongestSetBack = 2 * 3600;

bool isCredible(const std::optional<std::int64_t>& moment, std::int64_t now) {
  return moment && *moment <= now + kLongestSetBack;
}

// The day's first time at or before `now`.
std::int64_t seriesStart(const PassTimes& times, std::int64_t now) {
  const std::int64_t today = now - now % kSecondsPerDay + times.firstSecond;
  return today <= now ? today : today - kSecondsPerDay;
}

std::int64_t latestTime(const PassTimes& times, std::int64_t now) {
  const std::int64_t start = seriesStart(times, now);
  return now - (now - start) % std::min(times.intervalSeconds, kSecondsPerDay);
}

std::int64_t timeAfter(const PassTimes& times, std::int64_t now) {
  return std::min(latestTime(times, now) + times.intervalSeconds,
                  seriesStart(times, now) + kSecondsPerDay);
}

}  // namespace

void PassSchedule::start(const PassTimes& times, std::optional<std::int64_t> lastBegan,
                         std::int64_t now) {
  lastBegan_ = lastBegan;
  const std::int64_t latest = latestTime(times, now);
  if (latest / kSecondsPerDay != now / kSecondsPerDay) passedOver_ = latest;
}

bool PassSchedule::isDue(const PassTimes& times, std::int64_t now) const {
  const std::int64_t latest = latestTime(times, now);
  if (isCredible(passedOver_, now) && latest <= *passedOver_) return false;
  if (!isCredible(lastBegan_, now)) return true;
  if (latest <= *lastBegan_) return false;
  const std::int64_t days = latest / kSecondsPerDay - *lastBegan_ / kSecondsPerDay;
  return times.intervalSeconds <= kSecondsPerDay || days * kSecondsPerDay >= times.intervalSeconds;
}

std::int64_t PassSchedule::nextBegin(const PassTimes& times, std::int64_t now) const {
  std::int64_t moment = now;
  while (!isDue(times, moment)) moment = timeAfter(times, moment);
  return moment;
}

}  // namespace service
