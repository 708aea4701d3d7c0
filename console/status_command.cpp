// `pwlapse status`: how the last pass went and when the next one is, as a check of a monitoring
// system: the first line says it all, the exit status is one that such systems know.
#include <algorithm>
#include <cctype>
#include <charconv>
#include <memory>
#include <optional>

#include "base/format_text.h"
#include "console/answer.h"
#include "console/calendar.h"
#include "console/commands.h"
#include "console/finding_lines.h"
#include "console/site.h"
#include "platform/host/system_host.h"
#include "service/last_run.h"

namespace console {
namespace {

using base::formatText;
using service::LastRun;

// The exit status of each is its number.
enum class State { Well, Problems, NoPass };

const char* stateName(State state) {
  constexpr const char* kNames[] = {"OK", "WARNING", "CRITICAL"};
  return kNames[static_cast<int>(state)];
}

// "90m", "26h", "3d": seconds.
std::optional<std::int64_t> spanOf(const std::string& text) {
  constexpr std::int64_t kMinute = 60, kHour = 60 * kMinute, kDay = 24 * kHour;
  std::uint32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [unit, status] = std::from_chars(text.data(), end, number);
  if (status != std::errc() || unit + 1 != end) return std::nullopt;
  switch (std::tolower(static_cast<unsigned char>(*unit))) {
    case 's':
      return number;
    case 'm':
      return number * kMinute;
    case 'h':
      return number * kHour;
    case 'd':
      return number * kDay;
    default:
      return std::nullopt;
  }
}

std::string counted(std::uint64_t number, const char* one) {
  return formatText("%llu %s%s", static_cast<unsigned long long>(number), one,
                    number == 1 ? "" : "s");
}

State stateOf(const std::optional<LastRun>& run, std::int64_t now, std::int64_t maxAge) {
  if (!run || now - run->ended > maxAge) return State::NoPass;
  return run->allWell() ? State::Well : State::Problems;
}

// The first line, without the name of the state.
std::string headline(const LastRun& run, const Calendar& calendar, std::int64_t maxAge) {
  const std::int64_t age = std::max<std::int64_t>(calendar.now() - run.ended, 0);
  std::string text =
      "last pass " + roughSpanText(age) + " ago (" + calendar.momentText(run.ended) + ")";
  if (age > maxAge) text = "no pass within " + roughSpanText(maxAge) + ": " + text;
  text += ", " + counted(run.lines, "line") + ", " + counted(run.mails.sent, "mail") + " sent";
  if (run.managers) text += ", " + counted(run.managers->sent, "manager") + " mailed";
  if (run.reportOnly) text += ", report-only mode";
  if (!run.allWell()) text += ", " + counted(run.problems.count, "problem");
  if (run.next) text += "; next " + calendar.momentText(*run.next);
  return text;
}

std::string details(const LastRun& run, const Calendar& calendar, const TextStyle& style) {
  std::string text = formatText("began     %s, took %.1f s\n",
                                calendar.momentText(run.began).c_str(), run.durationSeconds);
  if (run.next) text += "next      " + calendar.momentText(*run.next) + '\n';
  if (!run.allWell()) {
    text += "last good " +
            (run.lastSuccess ? calendar.momentText(*run.lastSuccess) : "in no recorded pass") +
            '\n';
  }
  text += findingsText(run.problems, run.notes, style);
  return text;
}

void describe(const LastRun& run, const Calendar& calendar, Answer& answer) {
  answer.below = details(run, calendar, outputStyle());
  JsonValue record = JsonValue::parse(service::lastRunText(run));
  record.erase("version");
  record.erase("outcomes");  // they are the rows
  answer.members.update(record);
  for (int i = 0; i < service::kOutcomes; ++i) {
    if (run.counts[i] == 0) continue;
    answer.table.rows.push_back(
        {service::outcomeLabel(static_cast<service::Outcome>(i)), run.counts[i]});
  }
}

// Of the registry only the work folder is asked for: without one that can be read, the record is
// looked for in the current directory.
bool enterWorkDirOfService(const std::string& workDir, std::string& error) {
  platform::HostOptions here;
  here.directoryMayBeUnusable = true;
  std::string unreadable;
  const std::unique_ptr<platform::SystemHost> system = platform::makeSystemHost(here, unreadable);
  return enterWorkDir(workDir, system ? &system->host().registry : nullptr, error);
}

}  // namespace

int statusCommand(const StatusOptions& options) {
  const std::optional<std::int64_t> maxAge = spanOf(options.maxAge);
  if (!maxAge) return refuse("--max-age: \"" + options.maxAge + "\" is not a time such as 26h");
  std::string reason;
  if (!enterWorkDirOfService(options.workDir, reason)) return refuse(reason);
  const Calendar calendar(platform::systemClock());
  const std::optional<LastRun> run = service::readLastRun(reason);
  const State state = stateOf(run, calendar.now(), *maxAge);
  const std::string line =
      run ? headline(*run, calendar, *maxAge) : "no pass is recorded here: " + reason;

  Answer answer;
  answer.command = "status";
  answer.rowsKey = "outcomes";
  answer.table.columns = {{"outcome", "OUTCOME"}, {"lines", "LINES"}};
  constexpr Tone kTones[] = {Tone::Good, Tone::Note, Tone::Bad};
  const TextStyle style = outputStyle();
  const std::string word = stateName(state);
  answer.above = style.paragraph(style.painted(kTones[static_cast<int>(state)], word + ':') + ' ',
                                 word.size() + 2, line);
  answer.members = {{"state", stateName(state)}, {"message", jsonText(line)}};
  if (run) describe(*run, calendar, answer);
  answer.peopleSeeTable = run.has_value();
  printAnswer(answer, options.format);
  return static_cast<int>(state);
}

}  // namespace console
