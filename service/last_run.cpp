#include "service/last_run.h"

#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/format_text.h"
#include "config/pass_files.h"
#include "platform/system/files.h"
#include "platform/text/text_lines.h"

namespace service {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kVersion = 1;  // of the shape; a program that reads it may go by it
constexpr std::size_t kMaxFileBytes = std::size_t{4} * 1024 * 1024;
constexpr double kMsPerSecond = 1000;

Json timeJson(const std::optional<std::int64_t>& time) {
  return time ? Json(utcText(*time)) : Json(nullptr);
}

Json findingsJson(const config::FindingLines& found) {
  Json lines = Json::array();
  for (const std::string& line : found.lines) lines.push_back(platform::ansiToUtf8(line));
  return {{"count", found.count}, {"texts", std::move(lines)}};
}

config::FindingLines findingsOf(const Json& json) {
  config::FindingLines found;
  found.count = json.at("count").get<std::uint64_t>();
  for (const Json& line : json.at("texts")) {
    found.lines.push_back(platform::utf8ToAnsi(line.get<std::string>()));
  }
  return found;
}

std::optional<std::int64_t> timeOf(const Json& json) {
  if (json.is_null()) return std::nullopt;
  using namespace std::chrono;
  int y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0;
  if (std::sscanf(json.get<std::string>().c_str(), "%d-%d-%dT%d:%d:%dZ", &y, &mo, &d, &h, &mi,
                  &s) != 6) {
    return std::nullopt;
  }
  const sys_days date(year(y) / month(static_cast<unsigned>(mo)) / day(static_cast<unsigned>(d)));
  return (sys_seconds(date) + hours(h) + minutes(mi) + seconds(s)).time_since_epoch().count();
}

LastRun runOf(const Json& json) {
  LastRun run;
  run.began = timeOf(json.at("began")).value_or(0);
  run.ended = timeOf(json.at("ended")).value_or(0);
  run.durationSeconds = json.at("durationSeconds").get<double>();
  run.next = timeOf(json.at("next"));
  run.lastSuccess = timeOf(json.at("lastSuccess"));
  run.reportOnly = json.at("reportOnly").get<bool>();
  run.lists = json.at("lists").get<int>();
  run.lines = json.at("lines").get<std::uint64_t>();
  for (int i = 0; i < kOutcomes; ++i) {
    run.counts[i] = json.at("outcomes").value(outcomeLabel(static_cast<Outcome>(i)), 0ULL);
  }
  run.mails = {json.at("mailsSent").get<std::uint64_t>(),
               json.at("mailsFailed").get<std::uint64_t>()};
  if (json.contains("managersMailed")) {
    run.managers = {json.at("managersMailed").get<std::uint64_t>(),
                    json.at("managersFailed").get<std::uint64_t>()};
  }
  run.problems = findingsOf(json.at("problems"));
  run.notes = findingsOf(json.at("notes"));
  return run;
}

}  // namespace

LastRun lastRunOf(const PassRecord& record, std::int64_t ended) {
  LastRun run;
  run.durationSeconds = record.durationMs / kMsPerSecond;
  run.ended = ended;
  run.began = ended - static_cast<std::int64_t>(run.durationSeconds);
  run.reportOnly = record.reportOnly;
  run.lists = record.lists;
  run.lines = record.lines;
  run.counts = record.counts;
  run.mails = record.mails;
  run.managers = record.managers;
  run.problems = record.findings.problems();
  run.notes = record.findings.notes();
  if (run.allWell()) run.lastSuccess = ended;
  return run;
}

std::string lastRunText(const LastRun& run) {
  Json outcomes = Json::object();
  for (int i = 0; i < kOutcomes; ++i) {
    outcomes[outcomeLabel(static_cast<Outcome>(i))] = run.counts[i];
  }
  Json json = {{"version", kVersion},
               {"began", utcText(run.began)},
               {"ended", utcText(run.ended)},
               {"durationSeconds", run.durationSeconds},
               {"next", timeJson(run.next)},
               {"lastSuccess", timeJson(run.lastSuccess)},
               {"reportOnly", run.reportOnly},
               {"lists", run.lists},
               {"lines", run.lines},
               {"outcomes", std::move(outcomes)},
               {"mailsSent", run.mails.sent},
               {"mailsFailed", run.mails.failed},
               {"problems", findingsJson(run.problems)},
               {"notes", findingsJson(run.notes)}};
  if (run.managers) {
    json["managersMailed"] = run.managers->sent;
    json["managersFailed"] = run.managers->failed;
  }
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

bool writeLastRun(const LastRun& run) {
  return platform::replaceFileAtomically(config::kLastRunFile, lastRunText(run));
}

std::optional<LastRun> readLastRun(std::string& reason) {
  const std::string name = platform::absolutePath(config::kLastRunFile);
  std::string bytes;
  if (!platform::readWholeFile(config::kLastRunFile, bytes, kMaxFileBytes)) {
    reason = name + ": " + platform::fileErrorText();
    return std::nullopt;
  }
  try {
    const Json json = Json::parse(bytes);
    const int version = json.at("version").get<int>();
    if (version == kVersion) return runOf(json);
    reason = name + base::formatText(" has version %d, and this program knows version %d", version,
                                     kVersion);
  } catch (const Json::exception&) {
    reason = name + " is no record of a pass";
  }
  return std::nullopt;
}

std::string utcText(std::int64_t time) {
  using namespace std::chrono;
  const sys_seconds moment{seconds(time)};
  const sys_days midnight = floor<days>(moment);
  const year_month_day date(midnight);
  const hh_mm_ss clock(moment - midnight);
  return base::formatText("%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                          static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                          static_cast<int>(clock.hours().count()),
                          static_cast<int>(clock.minutes().count()),
                          static_cast<int>(clock.seconds().count()));
}

}  // namespace service
