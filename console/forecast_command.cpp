// `pwlapse forecast`: which passwords reach their maximum age on which day, from the records of a
// dry run; and the same with other settings.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <utility>

#include "base/format_text.h"
#include "console/answer.h"
#include "console/calendar.h"
#include "console/commands.h"
#include "console/forecast.h"
#include "console/user_look_up.h"
#include "console/user_rows.h"
#include "platform/system/files.h"
#include "service/dry_run.h"
#include "service/policy_table.h"

namespace console {
namespace {

// Puts the users of a dry run into a forecast.
class ForecastMaker : public service::PassObserver {
 public:
  ForecastMaker(const platform::Host& host, std::size_t days)
      : calendar_(host.clock), lookUp_(host.directory), forecast_(calendar_.today(), days) {}

  void userExamined(const notify::UserRecord& user) override {
    // A password that is to be changed anyway does not get there.
    if (user.skipReasons != 0 || user.changeAlreadyDue || !user.accountFound) return;
    const std::optional<std::int64_t> moment = expiryMoment(user);
    if (!moment) return;
    const std::int64_t day = calendar_.dayOf(*moment);
    forecast_.add(user.slot, service::slotLabel(user.slot), day, *moment <= calendar_.now());
    const bool due = day < calendar_.today() + static_cast<std::int64_t>(forecast_.days());
    if (!due || user.emailWarnings != 1) return;
    directory::UserDirectoryData data = user.data;
    const bool asked = lookUp_.complete(user.username, data);
    if (asked && data.email == directory::kNoEmail) {
      forecast_.addWithoutAddress(user.username);
    }
    unasked_ = unasked_ || !asked;
  }

  const Calendar& calendar() const { return calendar_; }
  const Forecast& forecast() const { return forecast_; }
  bool addressesKnown() const { return !unasked_; }

 private:
  Calendar calendar_;
  UserLookUp lookUp_;
  Forecast forecast_;
  bool unasked_ = false;
};

// A forecast and the run that it was made from.
struct Made {
  std::unique_ptr<ForecastMaker> maker;
  service::PassRecord record;
};

Made makeForecast(platform::SystemHost& system, std::size_t days) {
  Made made;
  made.maker = std::make_unique<ForecastMaker>(system.host(), days);
  made.record = service::makeDryRun(system.host(), made.maker.get(), {});
  return made;
}

JsonValue wavesJson(const Forecast& forecast) {
  JsonValue waves = JsonValue::array();
  for (const ForecastWave& wave : forecast.waves()) {
    const auto date = [&](std::size_t day) {
      return dayText(forecast.today() + static_cast<std::int64_t>(day));
    };
    waves.push_back(
        {{"from", date(wave.first)}, {"to", date(wave.last)}, {"passwords", wave.passwords}});
  }
  return waves;
}

JsonValue figuresJson(const Forecast& forecast) {
  JsonValue names = JsonValue::array();
  for (const std::string& name : forecast.withoutAddress()) names.push_back(jsonText(name));
  return {{"total", forecast.total()},    {"overdue", forecast.overdue()},
          {"later", forecast.later()},    {"usualPerDay", forecast.usual()},
          {"waves", wavesJson(forecast)}, {"withoutAddress", std::move(names)}};
}

std::uint64_t countOf(const Forecast& forecast, const std::string& policy, std::size_t day) {
  const ForecastPolicy* const found = forecast.policyNamed(policy);
  return found != nullptr ? found->days[day] : 0;
}

// A row for each day and policy that has something.
Table rowsOf(const ForecastPair& pair) {
  Table table;
  table.columns = {{"date", ""}, {"daysLeft", ""}, {"policy", ""}, {"passwords", ""}};
  if (pair.then != nullptr) table.columns.push_back({"passwordsThen", ""});
  std::vector<std::string> policies;
  for (const Forecast* forecast : {&pair.now, pair.then}) {
    if (forecast == nullptr) continue;
    for (const ForecastPolicy& policy : forecast->policies()) {
      if (std::find(policies.begin(), policies.end(), policy.name) == policies.end()) {
        policies.push_back(policy.name);
      }
    }
  }
  for (std::size_t day = 0; day < pair.now.days(); ++day) {
    for (const std::string& policy : policies) {
      const std::uint64_t now = countOf(pair.now, policy, day);
      const std::uint64_t then = pair.then != nullptr ? countOf(*pair.then, policy, day) : 0;
      if (now == 0 && then == 0) continue;
      std::vector<Value> row = {dayText(pair.now.today() + static_cast<std::int64_t>(day)), day,
                                policy, now};
      if (pair.then != nullptr) row.emplace_back(then);
      table.rows.push_back(std::move(row));
    }
  }
  return table;
}

std::string joined(const std::vector<std::string>& settings) {
  std::string text;
  for (const std::string& one : settings) text += (text.empty() ? "" : ", ") + one;
  return text;
}

void printProblems(const service::PassRecord& record) {
  for (const std::string& line : record.findings.problems().lines) {
    std::fprintf(stderr, "pwlapse: %s: %s\n", config::findingLabel(config::FindingKind::Problem),
                 line.c_str());
  }
}

}  // namespace

int forecastCommand(const ForecastOptions& options) {
  std::string error;
  SiteOptions asIs = options.question.site;
  const std::string given = joined(std::exchange(asIs.settings, {}));
  const std::string file = options.htmlFile.empty() ? "" : platform::absolutePath(options.htmlFile);
  const std::unique_ptr<platform::SystemHost> system = openHost(asIs, error);
  if (!system) return refuse(error);
  const std::unique_ptr<platform::SystemHost> changed =
      given.empty() ? nullptr : openHost(options.question.site, error);
  if (!given.empty() && !changed) return refuse(error);
  if (!enterWorkDir(asIs.workDir, &system->host().registry, error)) return refuse(error);

  const Made now = makeForecast(*system, options.days);
  const Made then = changed ? makeForecast(*changed, options.days) : Made{};
  const ForecastPair pair{now.maker->forecast(), changed ? &then.maker->forecast() : nullptr,
                          given};
  printProblems(now.record);
  Answer answer;
  answer.command = "forecast";
  answer.rowsKey = "days";
  answer.members = figuresJson(pair.now);
  if (pair.then != nullptr) {
    answer.members["settings"] = jsonText(given);
    answer.members["then"] = figuresJson(*pair.then);
  }
  answer.table = rowsOf(pair);
  answer.peopleSeeTable = false;
  answer.above = forecastText(pair, outputStyle());
  if (!now.maker->addressesKnown()) answer.below = "note: addresses could not be looked up\n";
  if (!file.empty()) {
    const Calendar& calendar = now.maker->calendar();
    if (!platform::replaceFileAtomically(file,
                                         forecastPage(pair, calendar.momentText(calendar.now())),
                                         platform::FileReaders::AsUsual)) {
      return refuse(file + ": " + platform::fileErrorText());
    }
    answer.below += "written: " + file + '\n';
  }
  printAnswer(answer, options.question.format);
  return now.record.allWell() && then.record.allWell() ? kExitDone : kExitSomethingFailed;
}

}  // namespace console
