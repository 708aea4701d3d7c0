#include "service/warning_memory.h"

#include <algorithm>

#include "base/case_fold.h"
#include "base/format_text.h"
#include "config/pass_files.h"
#include "platform/text/text_lines.h"

namespace service {
namespace {

notify::AccountPassword passwordOf(const notify::UserRecord& user) {
  return {base::foldCase(platform::ansiToUtf8(user.username)), user.passwordSet};
}

// The copy for the manager is kept beside it; no logon name has a slash.
notify::AccountPassword copyOf(const notify::UserRecord& user) {
  notify::AccountPassword password = passwordOf(user);
  password.account += "/manager";
  return password;
}

// What is recorded beside the warning days when the mail was about the expiry: the maximum age,
// negative. With another maximum age the user is due another mail.
std::int32_t expiryMark(const notify::UserRecord& user) {
  return user.maxAge > 0 ? -user.maxAge : 0;
}

}  // namespace

void WarningMemory::open(const config::ExpirationSettings& settings, bool clockIsWrong,
                         platform::Clock& clock, config::Findings& findings) {
  if (!settings.rememberWarnings || settings.reportOnly) return;
  recordsExpiry_ = settings.expireOnlyNotified;
  clock_ = &clock;
  findings_ = &findings;
  for (const std::int32_t day : settings.warnings) {
    if (day > 0) warningDays_.push_back(day);
  }
  state_ = State::Held;
  if (clockIsWrong) {
    findings.problem("by a clock that is wrong nobody is warned in this pass");
    return;
  }
  std::string problem;
  std::size_t dropped = 0;
  if (!ledger_.open(problem, dropped)) {
    findings.problem(problem + ": nobody is warned in this pass");
    return;
  }
  opened_ = true;
  state_ = State::Ready;
  if (dropped > 0) {
    findings.note(base::formatText("%s: %llu damaged %s dropped", config::kWarningLedgerFile,
                                   static_cast<unsigned long long>(dropped),
                                   dropped == 1 ? "line was" : "lines were"));
  }
}

std::vector<std::int32_t> WarningMemory::reachedDays(const notify::UserRecord& user) const {
  std::vector<std::int32_t> days;
  for (const std::int32_t day : warningDays_) {
    if (day >= user.daysLeft()) days.push_back(day);
  }
  return days;
}

bool WarningMemory::isDue(const notify::AccountPassword& password,
                          const notify::UserRecord& user) const {
  if (warningDays_.empty()) return !ledger_.wasMailedOn(password, clock_->localTime());
  const std::vector<std::int32_t> days = reachedDays(user);
  return std::any_of(days.begin(), days.end(),
                     [&](std::int32_t day) { return !ledger_.isDone(password, day); });
}

bool WarningMemory::isDue(const notify::UserRecord& user) const {
  return isDue(passwordOf(user), user);
}

bool WarningMemory::isCopyDue(const notify::UserRecord& user) const {
  const notify::AccountPassword copy = copyOf(user);
  const bool ofExpiry = recordsExpiry_ && user.daysLeft() <= 0;
  return ofExpiry ? !ledger_.isDone(copy, expiryMark(user)) : isDue(copy, user);
}

bool WarningMemory::isNotified(const notify::UserRecord& user) const {
  return opened_ && ledger_.isDone(passwordOf(user), expiryMark(user));
}

void WarningMemory::mailed(const notify::UserRecord& user) {
  record(passwordOf(user), user);
}

void WarningMemory::copied(const notify::UserRecord& user) {
  record(copyOf(user), user);
}

void WarningMemory::record(const notify::AccountPassword& password,
                           const notify::UserRecord& user) {
  if (state_ != State::Ready) return;
  std::vector<std::int32_t> days = reachedDays(user);
  if (recordsExpiry_ && user.daysLeft() <= 0) days.push_back(expiryMark(user));
  std::string problem;
  if (ledger_.record(password, days, clock_->localTime(), problem)) return;
  state_ = State::Held;
  findings_->problem(problem + ": " + user.username +
                     " may be warned again, and nobody else is warned in this pass");
}

void WarningMemory::finish() {
  std::string problem;
  if (opened_ && !ledger_.finish(clock_->localTime(), problem)) {
    findings_->problem(problem);
  }
}

}  // namespace service
