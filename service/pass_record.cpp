#include "service/pass_record.h"

#include <algorithm>

#include "base/format_text.h"

namespace service {
namespace {

using base::formatText;
using config::FindingKind;

constexpr std::size_t kLinesShown = 10;  // of a kind; more are counted only

void appendLines(std::string& text, FindingKind kind, const config::FindingLines& found) {
  const std::size_t shown = std::min(found.lines.size(), kLinesShown);
  const char* label = config::findingLabel(kind);
  for (std::size_t i = 0; i < shown; ++i) text += formatText("%s: ", label) + found.lines[i] + "\n";
  if (found.count > shown) {
    text +=
        formatText("%s: %llu more\n", label, static_cast<unsigned long long>(found.count - shown));
  }
}

// "3 no e-mail address, 9 not a warning day"
std::string noMailText(const PassRecord& pass) {
  std::string text;
  for (int i = 0; i < notify::kNoMailReasons; ++i) {
    const std::uint64_t count = pass.noMailCounts[static_cast<std::size_t>(i)];
    if (count == 0) continue;
    text +=
        formatText("%s%llu %s", text.empty() ? "" : ", ", static_cast<unsigned long long>(count),
                   noMailLabel(static_cast<notify::NoMail>(i)));
  }
  return text;
}

}  // namespace

void PassRecord::addUser(const notify::UserRecord& user, const std::string& listName) {
  ++lines;
  const Outcome outcome = outcomeOf(user);
  ++counts[static_cast<std::size_t>(outcome)];
  if (outcome == Outcome::NotMailed) ++noMailCounts[static_cast<std::size_t>(user.noMail)];
  const bool skippedUnread = user.skipReasons == notify::kSkipUnreadable;
  if (!user.accountFound && (user.skipReasons == 0 || skippedUnread)) {
    findings.note("the account of " + user.username + ", in " + listName + ", could not be read" +
                  (skippedUnread ? ": it is skipped" : ""));
  } else if (!user.readError.empty()) {
    addReadError(user);
  }
  if (user.accountFound && !user.lookUpError.empty()) {
    findings.note("the e-mail address of " + user.username +
                  " could not be looked up: " + user.lookUpError);
  }
  if (user.emailedText == "yes") ++mails.sent;
  if (user.mailFailed) {
    ++mails.failed;
    addFailedMail("mail to " + user.username + " <" + user.data.email + ">", user.mail);
  }
  using notify::Expiry;
  if (user.expiry == Expiry::Refused || user.expiry == Expiry::Unanswered) addRefusal(user);
}

void PassRecord::addFailedMail(const std::string& whose, const notify::MailOutcome& mail) {
  if (mail.result == notify::MailResult::NotTried) {
    ++mailsNotTried;
    return;
  }
  const auto same = std::find_if(failedMails_.begin(), failedMails_.end(),
                                 [&](const Alike& alike) { return alike.reason == mail.reason; });
  if (mail.concernsServer && same != failedMails_.end()) {
    ++same->count;
  } else if (mail.concernsServer && failedMails_.size() < config::Findings::kLinesKept) {
    failedMails_.push_back({mail.reason, 1, whose});
  } else {
    findings.problem(whose + " was not sent: " + mail.reason);
  }
}

// A directory that does not answer gives every account the same reason.
void PassRecord::addReadError(const notify::UserRecord& user) {
  if (readErrors_.repeats(user.readError)) return;
  findings.problem(
      "the account of " + user.username + " could not be read again, so the user was " +
      (user.emailedText == "yes" ? "not" : "neither mailed nor") + " expired: " + user.readError);
}

void PassRecord::addRefusal(const notify::UserRecord& user) {
  if (refusals_.repeats(user.refusal)) return;
  const bool answered = user.expiry == notify::Expiry::Refused;
  findings.problem((answered ? "the directory did not take the forced password change of "
                             : "the directory did not answer the forced password change of ") +
                   user.username + (answered ? "" : ", which may have been made") +
                   (user.refusal.empty() ? "" : ": " + user.refusal));
}

// Remembers a text that is new.
bool PassRecord::Repeated::repeats(const std::string& text) {
  if (!text.empty() && text == reason) {
    ++more;
    return true;
  }
  reason = text;
  return false;
}

void PassRecord::reportFailedMails() {
  const auto number = [](std::uint64_t count, const char* more) {
    return formatText("%llu %smail%s", static_cast<unsigned long long>(count), more,
                      count == 1 ? " was" : "s were");
  };
  for (const Alike& alike : failedMails_) {
    findings.problem(alike.count == 1 ? alike.first + " was not sent: " + alike.reason
                                      : alike.reason + ": " + number(alike.count, "") +
                                            " not sent, the first a " + alike.first,
                     config::Cause::MailServer);
  }
  if (mailsNotTried != 0) {
    findings.problem("the mail server was given up (smtpGiveUpAfter): " +
                         number(mailsNotTried, "more ") + " not tried",
                     config::Cause::MailServer);
  }
  const auto reportMore = [this](Repeated& same, const char* one, const char* many,
                                 const char* what) {
    if (same.more == 0) return;
    findings.problem(formatText("%llu more %s%s, for the same reason: ",
                                static_cast<unsigned long long>(same.more),
                                same.more == 1 ? one : many, what) +
                     same.reason);
    same.more = 0;
  };
  reportMore(readErrors_, "account", "accounts", " could not be read again");
  reportMore(refusals_, "forced password change was", "forced password changes were",
             " not taken by the directory");
  failedMails_.clear();
}

std::string passLine(const PassRecord& pass) {
  const auto count = [](std::uint64_t number, const char* one, const char* many) {
    return formatText("%llu %s", static_cast<unsigned long long>(number), number == 1 ? one : many);
  };
  std::string text =
      formatText("pass over %s in %s, in %s", count(pass.lines, "line", "lines").c_str(),
                 count(static_cast<std::uint64_t>(pass.lists), "list", "lists").c_str(),
                 spanText(pass.durationMs).c_str());
  if (pass.reportOnly) text += ", report-only mode";
  const char* before = ": ";
  for (int i = 0; i < kOutcomes; ++i) {
    if (pass.counts[i] == 0) continue;
    text += formatText("%s%llu %s", before, static_cast<unsigned long long>(pass.counts[i]),
                       outcomeLabel(static_cast<Outcome>(i), pass.mode));
    if (static_cast<Outcome>(i) == Outcome::NotMailed) text += " (" + noMailText(pass) + ")";
    before = ", ";
  }
  text += "; " + count(pass.mails.sent, "mail", "mails") + " sent";
  if (pass.managerMails().sent != 0) {
    text += ", and " + count(pass.managerMails().sent, "manager", "managers") + " mailed";
  }
  if (pass.findings.problems().count != 0) {
    text += "; " + count(pass.findings.problems().count, "problem", "problems");
  }
  return text;
}

std::string spanText(std::uint32_t ms) {
  constexpr std::uint32_t kSecond = 1000, kMinute = 60 * kSecond, kHour = 60 * kMinute;
  if (ms != 0 && ms % kHour == 0) return formatText("%u h", ms / kHour);
  if (ms != 0 && ms % kMinute == 0) return formatText("%u min", ms / kMinute);
  return formatText("%u s", ms / kSecond);
}

std::string summaryText(const PassRecord& pass) {
  std::string text =
      formatText("%llu %s in %i user %s%s\n", static_cast<unsigned long long>(pass.lines),
                 pass.lines == 1 ? "line" : "lines", pass.lists, pass.lists == 1 ? "list" : "lists",
                 pass.reportOnly ? ", report-only mode" : "");
  for (int i = 0; i < kOutcomes; ++i) {
    if (pass.counts[i] == 0) continue;
    const bool why = static_cast<Outcome>(i) == Outcome::NotMailed;
    text += formatText("  %-16s %8llu%s\n", outcomeLabel(static_cast<Outcome>(i), pass.mode),
                       static_cast<unsigned long long>(pass.counts[i]),
                       why ? (": " + noMailText(pass)).c_str() : "");
  }
  if (pass.managerMails().sent != 0) {
    text += formatText("  %-16s %8llu\n", "managers mailed",
                       static_cast<unsigned long long>(pass.managerMails().sent));
  }
  return text + findingsText(pass.findings);
}

std::string findingsText(const config::Findings& findings) {
  std::string text;
  appendLines(text, FindingKind::Note, findings.notes());
  appendLines(text, FindingKind::Problem, findings.problems());
  return text;
}

}  // namespace service
