#include "console/forecast.h"

#include <algorithm>
#include <numeric>

#include "base/format_text.h"
#include "console/calendar.h"
#include "platform/text/text_lines.h"

namespace console {
namespace {

using base::formatText;

// A wave has so many times the usual number, and at least so many passwords.
constexpr double kWaveFactor = 4;
constexpr std::uint64_t kSmallestWave = 5;

constexpr std::size_t kNamesShown = 20;
constexpr int kUsualWidth = 80;
constexpr int kNarrowestBar = 5;
constexpr int kWidestBar = 60;
constexpr int kFiguresWidth = 30;      // of a line: date, weekday, days, count
constexpr int kThenFiguresWidth = 10;  // of the second count and bar

std::string bar(std::uint64_t count, std::uint64_t most, int width, const TextStyle& style) {
  if (count == 0 || most == 0) return "";
  const auto length = std::max<std::uint64_t>(1, count * static_cast<std::uint64_t>(width) / most);
  static const std::string kBlock = "\u2588";
  const std::string block = platform::utf8ToAnsi(kBlock);
  const bool drawn = style.width != 0 && platform::ansiToUtf8(block) == kBlock;
  std::string text;
  for (std::uint64_t i = 0; i < length; ++i) text += drawn ? block : "#";
  return text;
}

std::uint64_t mostOnADay(const Forecast& forecast) {
  std::uint64_t most = 0;
  for (std::size_t day = 0; day < forecast.days(); ++day) most = std::max(most, forecast.on(day));
  return most;
}

bool isInWave(const std::vector<ForecastWave>& waves, std::size_t day) {
  return std::any_of(waves.begin(), waves.end(), [day](const ForecastWave& wave) {
    return wave.first <= day && day <= wave.last;
  });
}

// The days on which there is something, a line each.
Table dayTable(const ForecastPair& pair, const TextStyle& style) {
  const Forecast& now = pair.now;
  const Forecast* const then = pair.then;
  const std::uint64_t most = std::max(mostOnADay(now), then != nullptr ? mostOnADay(*then) : 0);
  const int columns = then != nullptr ? 2 : 1;
  const int room = (style.width != 0 ? style.width : kUsualWidth) - kFiguresWidth -
                   (then != nullptr ? kThenFiguresWidth : 0);
  const int width = std::clamp(room / columns, kNarrowestBar, kWidestBar);
  const std::vector<ForecastWave> waves = now.waves();
  const std::vector<ForecastWave> wavesThen =
      then != nullptr ? then->waves() : std::vector<ForecastWave>();
  Table table;
  table.columns = {{"date", "DATE"}, {"weekday", "DAY"}, {"in", "IN"}, {"now", "DUE"}, {"bar", ""}};
  if (then != nullptr) {
    table.columns.push_back({"then", "THEN"});
    table.columns.push_back({"thenBar", ""});
  }
  for (std::size_t day = 0; day < now.days(); ++day) {
    if (now.on(day) == 0 && (then == nullptr || then->on(day) == 0)) continue;
    const std::int64_t date = now.today() + static_cast<std::int64_t>(day);
    std::vector<Value> row = {
        dayText(date), weekdayName(date).substr(0, 3), day, now.on(day),
        Value(bar(now.on(day), most, width, style), isInWave(waves, day) ? Tone::Bad : Tone::Good)};
    if (then != nullptr) {
      row.emplace_back(then->on(day));
      row.emplace_back(bar(then->on(day), most, width, style),
                       isInWave(wavesThen, day) ? Tone::Bad : Tone::Note);
    }
    table.rows.push_back(std::move(row));
  }
  return table;
}

std::uint64_t dueOf(const ForecastPolicy& policy) {
  return std::accumulate(policy.days.begin(), policy.days.end(), std::uint64_t{0});
}

Table policyTable(const ForecastPair& pair) {
  Table table;
  table.columns = {{"policy", "POLICY"}, {"now", "DUE"}, {"overdue", "OVERDUE"}};
  if (pair.then != nullptr) {
    table.columns.push_back({"then", "DUE THEN"});
    table.columns.push_back({"overdueThen", "OVERDUE THEN"});
  }
  for (const ForecastPolicy& policy : pair.now.policies()) {
    std::vector<Value> row = {policy.name, dueOf(policy), policy.overdue};
    if (pair.then != nullptr) {
      const ForecastPolicy* const then = pair.then->policyNamed(policy.name);
      row.emplace_back(then != nullptr ? Value(dueOf(*then)) : Value());
      row.emplace_back(then != nullptr ? Value(then->overdue) : Value());
    }
    table.rows.push_back(std::move(row));
  }
  return table;
}

std::string summary(const Forecast& forecast) {
  return formatText("%s in %d days; %s have already, %s later",
                    groupedText(forecast.total()).c_str(), static_cast<int>(forecast.days()),
                    groupedText(forecast.overdue()).c_str(), groupedText(forecast.later()).c_str());
}

void addWaves(const Forecast& forecast, const TextStyle& style, std::string& text) {
  for (const ForecastWave& wave : forecast.waves()) {
    text += style.paragraph(style.painted(Tone::Bad, "wave:") + ' ', 6, waveText(forecast, wave));
  }
}

void addWithoutAddress(const Forecast& forecast, const TextStyle& style, std::string& text) {
  const std::vector<std::string>& names = forecast.withoutAddress();
  if (names.empty()) return;
  std::string list;
  for (std::size_t i = 0; i < std::min(names.size(), kNamesShown); ++i) {
    list += (i == 0 ? "" : ", ") + platform::loggableAnsiLine(names[i]);
  }
  if (names.size() > kNamesShown) list += ", ...";
  text += style.paragraph(style.painted(Tone::Note, "note:") + ' ', 6,
                          groupedText(names.size()) + " of them " +
                              (names.size() == 1 ? "has" : "have") + " no e-mail address: " + list);
}

}  // namespace

ForecastPolicy& Forecast::policy(int slot, const std::string& name) {
  const auto at = std::lower_bound(slots_.begin(), slots_.end(), slot);
  const auto index = at - slots_.begin();
  if (at == slots_.end() || *at != slot) {
    slots_.insert(at, slot);
    policies_.insert(policies_.begin() + index, {name, std::vector<std::uint64_t>(days_), 0});
  }
  return policies_[static_cast<std::size_t>(index)];
}

void Forecast::add(int slot, const std::string& name, std::int64_t day, bool overdue) {
  ForecastPolicy& of = policy(slot, name);
  const std::int64_t in = std::max<std::int64_t>(day - today_, 0);
  if (overdue) {
    ++of.overdue;
  } else if (in < static_cast<std::int64_t>(days_)) {
    ++of.days[static_cast<std::size_t>(in)];
  } else {
    ++later_;
  }
}

void Forecast::addWithoutAddress(const std::string& username) {
  withoutAddress_.push_back(username);
}

const ForecastPolicy* Forecast::policyNamed(const std::string& name) const {
  const auto found = std::find_if(policies_.begin(), policies_.end(),
                                  [&name](const ForecastPolicy& one) { return one.name == name; });
  return found == policies_.end() ? nullptr : &*found;
}

std::uint64_t Forecast::on(std::size_t day) const {
  std::uint64_t count = 0;
  for (const ForecastPolicy& policy : policies_) count += policy.days[day];
  return count;
}

std::uint64_t Forecast::total() const {
  std::uint64_t count = 0;
  for (std::size_t day = 0; day < days_; ++day) count += on(day);
  return count;
}

std::uint64_t Forecast::overdue() const {
  std::uint64_t count = 0;
  for (const ForecastPolicy& policy : policies_) count += policy.overdue;
  return count;
}

double Forecast::usual() const {
  std::vector<std::uint64_t> counts(days_);
  for (std::size_t day = 0; day < days_; ++day) counts[day] = on(day);
  std::sort(counts.begin(), counts.end());
  counts.resize(days_ - days_ / 10);
  const auto sum = std::accumulate(counts.begin(), counts.end(), std::uint64_t{0});
  return counts.empty() ? 0 : static_cast<double>(sum) / static_cast<double>(counts.size());
}

std::vector<ForecastWave> Forecast::waves() const {
  const double least = std::max(kWaveFactor * usual(), static_cast<double>(kSmallestWave));
  std::vector<ForecastWave> waves;
  for (std::size_t day = 0; day < days_; ++day) {
    const std::uint64_t count = on(day);
    if (static_cast<double>(count) < least) continue;
    if (waves.empty() || waves.back().last + 1 != day) waves.push_back({day, day, 0});
    waves.back().last = day;
    waves.back().passwords += count;
  }
  return waves;
}

std::string forecastText(const ForecastPair& pair, const TextStyle& style) {
  const auto lines = [&style](const std::string& line) { return style.paragraph("", 0, line); };
  std::string text = lines("passwords that reach their maximum age: " + summary(pair.now));
  if (pair.then != nullptr) {
    text += lines("with " + platform::loggableAnsiLine(pair.settings) + ": " + summary(*pair.then));
  }
  text += '\n';
  if (pair.now.policies().size() > 1) text += policyTable(pair).text(style) + '\n';
  const Table days = dayTable(pair, style);
  if (!days.rows.empty()) text += days.text(style) + '\n';
  addWaves(pair.now, style, text);
  if (pair.then != nullptr && !pair.then->waves().empty()) {
    text += "with the settings given:\n";
    addWaves(*pair.then, style, text);
  }
  addWithoutAddress(pair.then != nullptr ? *pair.then : pair.now, style, text);
  return text;
}

std::string waveText(const Forecast& forecast, const ForecastWave& wave) {
  const auto dateOf = [&](std::size_t day) {
    return forecast.today() + static_cast<std::int64_t>(day);
  };
  std::string text = dayText(dateOf(wave.first));
  if (wave.last != wave.first) {
    text += " to " + dayText(dateOf(wave.last));
  } else {
    text += " (" + weekdayName(dateOf(wave.first)) + ')';
  }
  text += wave.first == 0 ? ", today" : formatText(", in %d days", static_cast<int>(wave.first));
  text += ": " + groupedText(wave.passwords) + " passwords";
  const double usual = forecast.usual() * static_cast<double>(wave.last - wave.first + 1);
  if (usual >= 0.5) {
    text +=
        formatText(", %.0f times the usual number", static_cast<double>(wave.passwords) / usual);
  }
  return text;
}

std::string weekdayName(std::int64_t day) {
  constexpr const char* kNames[] = {"Thursday", "Friday",  "Saturday", "Sunday",
                                    "Monday",   "Tuesday", "Wednesday"};
  return kNames[(day % 7 + 7) % 7];  // 1970-01-01 was a Thursday
}

std::string groupedText(std::uint64_t number) {
  std::string text = std::to_string(number);
  for (std::size_t at = text.size(); at > 3; at -= 3) text.insert(at - 3, 1, ',');
  return text;
}

}  // namespace console
