#include "service/outcome.h"

#include <initializer_list>

#include "base/format_text.h"

namespace service {
namespace {

using notify::Expiry;
using notify::PassMode;
using notify::UserRecord;

struct Words {
  std::uint32_t bit;
  const char* text;
};

std::string wordsOf(std::uint32_t bits, std::initializer_list<Words> table) {
  std::string text;
  for (const auto& [bit, words] : table) {
    if ((bits & bit) == 0) continue;
    if (!text.empty()) text += "; ";
    text += words;
  }
  return text;
}

std::string skipText(const UserRecord& user) {
  return wordsOf(user.skipReasons,
                 {
                     {notify::kSkipComputerAccount, "computer account"},
                     {notify::kSkipExcluded, "on this policy's exclude list"},
                     {notify::kSkipDisabled, "account is disabled"},
                     {notify::kSkipNeverExpires, "password never expires"},
                     {notify::kSkipCannotChange, "user cannot change the password"},
                     {notify::kSkipProcessedEarlier, "an earlier policy or line has this user"},
                     {notify::kSkipNameTooShort, "name is shorter than 3 characters"},
                     {notify::kSkipUnreadable, "account cannot be read"},
                 });
}

std::string agePhrase(const UserRecord& user) {
  if (!user.accountFound) {
    return "account not found, age taken as " + base::formatText("%u", user.age);
  }
  return base::formatText("age %u of %i days", user.age, user.maxAge);
}

const char* withheldText(Expiry expiry) {
  switch (expiry) {
    case Expiry::OverLimit:
      return "left for a later pass by maxExpirations";
    case Expiry::NotNotified:
      return "not expired before the user is notified";
    case Expiry::PassStopped:
      return "the pass was stopped before";
    default:
      return "the directory's clock differs too much";
  }
}

std::string mailPhrase(const UserRecord& user, PassMode mode) {
  if (user.emailedText == "yes") {
    return (mode == PassMode::Dry ? "would be mailed to " : "mailed to ") + user.data.email;
  }
  if (user.mail.result == notify::MailResult::NotTried) {
    return "mail to " + user.data.email + " not tried: " + user.mail.reason;
  }
  if (user.mailFailed) return "mail to " + user.data.email + " failed: " + user.mail.reason;
  return std::string("not mailed: ") + noMailLabel(user.noMail);
}

}  // namespace

const char* noMailLabel(notify::NoMail reason) {
  using enum notify::NoMail;
  switch (reason) {
    case None:
      return "not in the warning period";
    case PolicyMailsNobody:
      return "the policy mails nobody";
    case MailedToday:
      return "already mailed today (limitEmails)";
    case LookUpFailed:
      return "address could not be looked up";
    case NoSurname:
      return "no surname, so no address";
    case NoAddress:
      return "no e-mail address";
    case ReportOnly:
      return "report-only mode";
    case HeldBack:
      return "warnings are held back";
    case WithExpiry:
      return "the mail goes out with the expiry";
    case NotAWarningDay:
      return "not a warning day";
    case Remembered:
      return "no warning day since the last mail";
    case Changed:
      return "the password was changed meanwhile";
  }
  return "";
}

Outcome outcomeOf(const UserRecord& user) {
  if (user.skipReasons != 0) return Outcome::Skipped;
  if (!user.readError.empty()) return Outcome::NotRead;
  switch (user.expiry) {
    case Expiry::Forced:
      return Outcome::Expired;
    case Expiry::OnlyReported:
      return Outcome::WouldExpire;
    case Expiry::Refused:
    case Expiry::Unanswered:
      return Outcome::ExpiryRefused;
    case Expiry::Withheld:
    case Expiry::OverLimit:
    case Expiry::NotNotified:
    case Expiry::PassStopped:
      return Outcome::ExpiryWithheld;
    case Expiry::ByDirectory:
      return Outcome::AlreadyExpired;
    case Expiry::NotDue:
      break;
  }
  if (!user.inWarningPeriod) return Outcome::OutsidePeriod;
  if (user.mailFailed) return Outcome::MailFailed;
  return user.emailedText == "yes" ? Outcome::Warned : Outcome::NotMailed;
}

const char* outcomeLabel(Outcome outcome, PassMode mode) {
  const bool dry = mode == PassMode::Dry;
  switch (outcome) {
    case Outcome::OutsidePeriod:
      return "outside period";
    case Outcome::Warned:
      return dry ? "would be mailed" : "warned";
    case Outcome::NotMailed:
      return "not mailed";
    case Outcome::MailFailed:
      return "mail failed";
    case Outcome::Expired:
      return dry ? "would be forced" : "expired";
    case Outcome::WouldExpire:
      return "would expire";
    case Outcome::ExpiryRefused:
      return "expiry refused";
    case Outcome::ExpiryWithheld:
      return "expiry withheld";
    case Outcome::AlreadyExpired:
      return "already expired";
    case Outcome::NotRead:
      return "not read again";
    case Outcome::Skipped:
      return "skipped";
  }
  return "";
}

std::string outcomeCause(const UserRecord& user, PassMode mode) {
  const Outcome outcome = outcomeOf(user);
  if (outcome == Outcome::Skipped) return skipText(user);
  if (outcome == Outcome::OutsidePeriod) {
    return user.changeAlreadyDue ? "already to change the password at next logon" : "";
  }
  std::string mail = mailPhrase(user, mode);
  switch (outcome) {
    case Outcome::Expired:
      return (mode == PassMode::Dry ? "change would be forced at next logon; "
                                    : "change forced at next logon; ") +
             mail;
    case Outcome::WouldExpire:
      if (user.noMail == notify::NoMail::ReportOnly) return noMailLabel(user.noMail);
      return "report-only mode; " + mail;
    case Outcome::ExpiryRefused:
      return (user.expiry == Expiry::Unanswered
                  ? "the directory did not answer the forced change; "
                  : "the directory did not take the forced change; ") +
             mail;
    case Outcome::ExpiryWithheld:
      return withheldText(user.expiry) + ("; " + mail);
    case Outcome::AlreadyExpired:
      return "expired by the directory itself; " + mail;
    case Outcome::NotRead:
      return (user.emailedText == "yes" ? "mailed, not expired: "
                                        : "neither mailed nor expired: ") +
             user.readError;
    default:
      return mail;
  }
}

std::string outcomeReason(const UserRecord& user, PassMode mode) {
  const std::string cause = outcomeCause(user, mode);
  const Outcome outcome = outcomeOf(user);
  if (outcome == Outcome::Skipped || cause.empty() || user.changeAlreadyDue) {
    return cause.empty() ? agePhrase(user) : cause;
  }
  const bool counts =
      outcome == Outcome::Warned || outcome == Outcome::NotMailed || outcome == Outcome::MailFailed;
  const std::string left = counts ? base::formatText(", %i left", user.daysLeft()) : "";
  return agePhrase(user) + left + "; " + cause;
}

}  // namespace service
