#include "console/pass_watcher.h"

#include <algorithm>

#include "base/format_text.h"
#include "base/text.h"
#include "notify/mail_settings.h"

namespace console {
namespace {

using base::formatText;

constexpr std::size_t kLinesShown = 10;  // of a kind; more are counted only
constexpr int kBarWidth = 30;

void appendLines(std::string& text, const char* label, const std::vector<std::string>& lines,
                 std::uint64_t count) {
  for (const std::string& line : lines) text += std::string(label) + ": " + line + "\n";
  if (count > lines.size()) {
    text += base::formatText("%s: %llu more\n", label,
                             static_cast<unsigned long long>(count - lines.size()));
  }
}

}  // namespace

void PassWatcher::slotStarted(int slot, const std::string& includeFile, std::uint64_t listBytes) {
  ++lists_;
  listName_ = slotLabel(slot) + " (" + includeFile + ")";
  listBytes_ = listBytes;
  readBytes_ = 0;
  drawnPercent_ = -1;
  drawBar();
}

void PassWatcher::userExamined(const service::UserVerdict& verdict) {
  ++lines_;
  ++counts_[static_cast<std::size_t>(outcomeOf(verdict))];
  if (!verdict.accountFound && verdict.skipReasons == 0) {
    noteFound("the account of " + verdict.username + ", in " + listName_ + ", could not be read");
  }
  if (verdict.mailFailed) {
    problemFound("mail to " + verdict.username + " <" + verdict.email + "> was not sent");
    anyMailFailed_ = true;
  }
  if (verdict.expiry == service::Expiry::Refused) {
    const std::string& why = verdict.refusal;
    problemFound("the directory did not take the forced password change of " + verdict.username +
                 (why.empty() ? "" : ": " + why));
  }
  if (keep_ == Keep::Verdicts) verdicts_.push_back(verdict);
  readBytes_ += verdict.username.size() + 1;
  drawBar();
}

bool PassWatcher::finish(const service::RunSummary& summary,
                         const std::vector<std::string>& warnings) {
  if (drawnPercent_ >= 0) std::fputs("\r\033[K", terminal_);
  reportOnly_ = summary.reportOnly;
  for (const std::string& warning : warnings) noteFound(warning);
  if (!summary.directoryBound) {
    const std::string& text = summary.directoryError.text;
    problemFound("could not bind to the domain" + (text.empty() ? "" : ": " + text));
  }
  if (summary.testEmailFailed) problemFound("the test mail was not sent");
  if (anyMailFailed_ || summary.testEmailFailed) {
    noteFound("what the mail server said to the last mail that failed is in " +
              std::string(notify::kMailErrorFile));
  }
  if (summary.adminReportFailed) problemFound("the report was not mailed to the administrator");
  if (summary.fileReportFailed) problemFound("the report file could not be written");
  return problemCount_ == 0;
}

std::string PassWatcher::summaryText() const {
  std::string text =
      base::formatText("%llu %s in %i user %s%s\n", static_cast<unsigned long long>(lines_),
                       lines_ == 1 ? "line" : "lines", lists_, lists_ == 1 ? "list" : "lists",
                       reportOnly_ ? ", report-only mode" : "");
  for (int i = 0; i < kOutcomes; ++i) {
    if (counts_[i] == 0) continue;
    text += base::formatText("  %-16s %8llu\n", outcomeLabel(static_cast<Outcome>(i)),
                             static_cast<unsigned long long>(counts_[i]));
  }
  appendLines(text, "note", notes_, noteCount_);
  appendLines(text, "FAILED", problems_, problemCount_);
  return text;
}

// Names and texts of the directory: what would control the terminal, or read as a line of its own,
// is shown, not obeyed.
void PassWatcher::problemFound(const std::string& problem) {
  ++problemCount_;
  if (problems_.size() < kLinesShown) problems_.push_back(base::loggableLine(problem));
}

void PassWatcher::noteFound(const std::string& note) {
  ++noteCount_;
  if (notes_.size() < kLinesShown) notes_.push_back(base::loggableLine(note));
}

void PassWatcher::drawBar() {
  if (terminal_ == nullptr) return;
  const std::uint64_t read = std::min(readBytes_, listBytes_);
  const int percent = listBytes_ == 0 ? 100 : static_cast<int>(read * 100 / listBytes_);
  if (percent == drawnPercent_) return;
  drawnPercent_ = percent;
  const int filled = percent * kBarWidth / 100;
  std::fprintf(terminal_, "\r\033[K[%s%s] %3d %% %s", std::string(filled, '#').c_str(),
               std::string(kBarWidth - filled, '.').c_str(), percent, listName_.c_str());
  std::fflush(terminal_);
}

}  // namespace console
