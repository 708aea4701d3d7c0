// `pwlapse run --dry-run`: what a pass would do now and, with --set, how much more or less of it.
#include <array>
#include <optional>
#include <utility>

#include "base/format_text.h"
#include "console/commands.h"
#include "console/finding_lines.h"
#include "console/pass_watcher.h"
#include "console/user_rows.h"
#include "platform/system/files.h"
#include "platform/system/terminal.h"
#include "service/dry_run.h"

namespace console {
namespace {

using base::formatText;
using notify::UserRecord;

// What a site hears of in a change of settings.
struct Totals {
  std::array<std::uint64_t, service::kOutcomes> counts{};
  std::uint64_t mailed = 0;
  std::uint64_t forced = 0;
  std::optional<std::uint64_t> managers;  // who are mailed; empty without managerDays
};

// Counts, and shows the progress.
class Counter final : public service::PassObserver {
 public:
  explicit Counter(std::FILE* terminal) : bar_(PassWatcher::Keep::Nothing, terminal) {}
  ~Counter() override { bar_.finish(); }

  void slotStarted(int slot, const std::string& file, std::uint64_t listBytes) override {
    bar_.slotStarted(slot, file, listBytes);
  }
  void userExamined(const UserRecord& user) override {
    ++totals_.counts.at(static_cast<std::size_t>(service::outcomeOf(user)));
    if (user.emailedText == "yes") ++totals_.mailed;
    if (user.expiry == notify::Expiry::Forced) ++totals_.forced;
    bar_.userExamined(user);
  }

  const Totals& totals() const { return totals_; }

 private:
  PassWatcher bar_;
  Totals totals_;
};

std::pair<service::PassRecord, Totals> dryRun(platform::SystemHost& system,
                                              const std::string& reportFile) {
  Counter counter(platform::isTerminal(stderr) ? stderr : nullptr);
  service::DryRunOptions options;
  options.reportFile = reportFile;
  service::PassRecord record = service::makeDryRun(system.host(), &counter, options);
  Totals totals = counter.totals();
  if (record.managers) totals.managers = record.managers->sent;
  return {std::move(record), totals};
}

// "8 would be mailed" and, with a number to compare with, ", 3 more than without --set".
std::string totalLine(const char* words, std::uint64_t with, std::optional<std::uint64_t> without) {
  std::string text = formatText("%llu %s", static_cast<unsigned long long>(with), words);
  if (!without) return text + '\n';
  if (with == *without) return text + ", as many as without --set\n";
  const std::uint64_t difference = with > *without ? with - *without : *without - with;
  return text + formatText(", %llu %s than without --set\n",
                           static_cast<unsigned long long>(difference),
                           with > *without ? "more" : "fewer");
}

// Below the table: `without` is what a pass without --set would do, where there is --set.
std::string totalLines(const Totals& totals, const std::optional<Totals>& without) {
  std::string text;
  if (without) {
    text += totalLine("would be mailed", totals.mailed, without->mailed) +
            totalLine("would be forced", totals.forced, without->forced);
  }
  if (totals.managers || (without && without->managers)) {
    const std::uint64_t managers = totals.managers.value_or(0);
    std::optional<std::uint64_t> before;
    if (without) before = without->managers.value_or(0);
    text += totalLine(managers == 1 ? "manager would be mailed" : "managers would be mailed",
                      managers, before);
  }
  return text.empty() ? text : '\n' + text;
}

JsonValue totalsJson(const Totals& totals) {
  JsonValue json = {{"mailed", totals.mailed}, {"forced", totals.forced}};
  if (totals.managers) json["managersMailed"] = *totals.managers;
  return json;
}

}  // namespace

int dryRunCommand(const RunOptions& options) {
  const SiteOptions site{options.registryFile, options.directoryUri, options.workDir,
                         options.settings};
  SiteOptions asItIs = site;
  asItIs.settings.clear();
  const std::string reportFile =
      options.reportFile.empty() ? "" : platform::absolutePath(options.reportFile);
  std::string error;
  const std::unique_ptr<platform::SystemHost> system = openHost(site, error);
  const std::unique_ptr<platform::SystemHost> before =
      system && !site.settings.empty() ? openHost(asItIs, error) : nullptr;
  if (!error.empty() || !enterWorkDir(site.workDir, &system->host().registry, error)) {
    return refuse(error);
  }

  const auto [record, totals] = dryRun(*system, reportFile);
  Answer answer;
  answer.command = "run";
  answer.rowsKey = "outcomes";
  answer.table.columns = {{"outcome", "", Fit::Hidden}, {"label", "OUTCOME"}, {"lines", "LINES"}};
  answer.members = {{"dryRun", true},
                    {"reportOnly", record.reportOnly},
                    {"lists", record.lists},
                    {"lines", record.lines},
                    {"would", totalsJson(totals)}};
  answer.above =
      formatText("A dry run: nothing is mailed, forced or written%s.\n",
                 reportFile.empty() ? "" : " but the report") +
      formatText("%llu lines in %i user list%s%s\n\n",
                 static_cast<unsigned long long>(record.lines), record.lists,
                 record.lists == 1 ? "" : "s", record.reportOnly ? ", report-only mode" : "");
  std::optional<Totals> without;
  if (before) {
    without = dryRun(*before, "").second;
    answer.table.columns.push_back({"linesWithoutSet", "WITHOUT --set"});
    answer.members["wouldWithoutSet"] = totalsJson(*without);
  }
  answer.below = totalLines(totals, without);
  for (int i = 0; i < service::kOutcomes; ++i) {
    const auto outcome = static_cast<service::Outcome>(i);
    const std::uint64_t withoutSet = without ? without->counts.at(i) : 0;
    if (totals.counts.at(i) == 0 && withoutSet == 0) continue;
    answer.table.rows.push_back(
        {outcomeCode(outcome),
         {service::outcomeLabel(outcome, notify::PassMode::Dry), outcomeTone(outcome)},
         totals.counts.at(i)});
    if (without) answer.table.rows.back().emplace_back(withoutSet);
  }
  const TextStyle style = outputStyle();
  answer.below += findingsText(record.findings.problems(), record.findings.notes(), style);
  answer.members["problems"] = findingsJson(record.findings.problems());
  answer.members["notes"] = findingsJson(record.findings.notes());
  printAnswer(answer, options.format);
  return record.allWell() ? kExitDone : kExitSomethingFailed;
}

}  // namespace console
