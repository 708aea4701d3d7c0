// Which passwords reach their maximum age on which day: the figures of `pwlapse forecast`, and the
// page and the lines that they are shown in. Nothing here reads a directory.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "console/table.h"

namespace console {

// Days are counted from the forecast's first one, which is today.
struct ForecastPolicy {
  std::string name;                 // ANSI
  std::vector<std::uint64_t> days;  // passwords that reach their age on each
  std::uint64_t overdue = 0;        // have reached it already
};

// Days in a row on which many times the usual number of passwords reach their age.
struct ForecastWave {
  std::size_t first = 0, last = 0;
  std::uint64_t passwords = 0;
};

class Forecast {
 public:
  Forecast(std::int64_t today, std::size_t days) : today_(today), days_(days) {}

  // A user's password: of the policy in that slot, reached on that day (as Calendar counts them).
  void add(int slot, const std::string& policy, std::int64_t day, bool overdue);
  // One of these users whom no warning can reach, in the ANSI code page.
  void addWithoutAddress(const std::string& username);

  std::int64_t today() const { return today_; }
  std::size_t days() const { return days_; }
  const std::vector<ForecastPolicy>& policies() const { return policies_; }  // by slot
  const ForecastPolicy* policyNamed(const std::string& name) const;  // null: no user is due of it
  std::uint64_t on(std::size_t day) const;
  std::uint64_t total() const;  // in all days, without those overdue
  std::uint64_t overdue() const;
  std::uint64_t later() const { return later_; }
  const std::vector<std::string>& withoutAddress() const { return withoutAddress_; }

  // How many a day are usual: the mean without the tenth of the days that have most.
  double usual() const;
  std::vector<ForecastWave> waves() const;

 private:
  ForecastPolicy& policy(int slot, const std::string& name);

  std::int64_t today_;
  std::size_t days_;
  std::vector<int> slots_;  // of policies_
  std::vector<ForecastPolicy> policies_;
  std::uint64_t later_ = 0;
  std::vector<std::string> withoutAddress_;
};

// A forecast, and the same with the settings of --set where there are some.
struct ForecastPair {
  const Forecast& now;
  const Forecast* then = nullptr;  // of the same days
  std::string settings;            // of --set, in words, ANSI
};

// For people on a terminal: the days with bars, the waves, who has no address. ANSI.
std::string forecastText(const ForecastPair& forecast, const TextStyle& style);

// One page of HTML in UTF-8 that needs no other file: for screens of any width, light and dark, and
// for paper.
std::string forecastPage(const ForecastPair& forecast, const std::string& madeAt);

// "2026-12-01 to 2026-12-03, in 9 days: 1,234 passwords, 14 times the usual number".
std::string waveText(const Forecast& forecast, const ForecastWave& wave);
std::string weekdayName(std::int64_t day);      // "Tuesday"
std::string groupedText(std::uint64_t number);  // "1,234"

}  // namespace console
