#include "console/user_rows.h"

#include <array>

#include "service/policy_table.h"

namespace console {
namespace {

using notify::UserRecord;
using service::Outcome;

// In the order of service::Outcome.
constexpr std::array<const char*, service::kOutcomes> kCodes = {
    "outside", "mail",     "no-mail",         "mail-failed", "force",  "report-only",
    "refused", "withheld", "already-expired", "not-read",    "skipped"};

Value dayValue(const std::optional<std::int64_t>& moment, const Calendar& calendar) {
  return moment ? Value(dayText(calendar.dayOf(*moment))) : Value();
}

Value textValue(const std::string& text) {
  return text.empty() ? Value() : Value(text);
}

}  // namespace

const char* outcomeCode(Outcome outcome) {
  return kCodes.at(static_cast<std::size_t>(outcome));
}

std::vector<std::string> outcomeCodes() {
  return {kCodes.begin(), kCodes.end()};
}

Tone outcomeTone(Outcome outcome) {
  switch (outcome) {
    case Outcome::Warned:
      return Tone::Good;
    case Outcome::Expired:
    case Outcome::WouldExpire:
    case Outcome::MailFailed:
    case Outcome::ExpiryRefused:
    case Outcome::NotRead:
      return Tone::Bad;
    case Outcome::NotMailed:
    case Outcome::ExpiryWithheld:
    case Outcome::AlreadyExpired:
      return Tone::Note;
    case Outcome::OutsidePeriod:
    case Outcome::Skipped:
      break;
  }
  return Tone::Faint;
}

std::optional<std::int64_t> expiryMoment(const UserRecord& user) {
  const std::int64_t time = user.expiryTime();
  if (time == 0) return std::nullopt;
  return momentOf(time);
}

std::string whyToday(const UserRecord& user) {
  const Outcome outcome = service::outcomeOf(user);
  if (!user.accountFound && outcome != Outcome::Skipped) {
    return service::outcomeReason(user, notify::PassMode::Dry);
  }
  if (outcome == Outcome::Warned) return "a warning is due";
  const std::string label = service::outcomeLabel(outcome, notify::PassMode::Dry);
  std::string cause = service::outcomeCause(user, notify::PassMode::Dry);
  if (outcome == Outcome::Expired) return cause.substr(cause.find("; ") + 2);
  if (cause.starts_with(label + ": ")) cause.erase(0, label.size() + 2);
  return cause;
}

std::vector<Column> userColumns() {
  return {{"user", "USER", Fit::Cut},
          {"policy", "POLICY"},
          {"age", "AGE", Fit::Drop},
          {"maximumAge", "MAX", Fit::Drop},
          {"expires", "EXPIRES"},
          {"daysLeft", "LEFT"},
          {"address", "ADDRESS", Fit::Drop},
          {"firstName", "", Fit::Hidden},
          {"lastName", "", Fit::Hidden},
          {"outcome", "", Fit::Hidden},
          {"today", "TODAY"},
          {"mailed", "", Fit::Hidden},
          {"forced", "", Fit::Hidden},
          {"why", "WHY", Fit::Wrap}};
}

std::vector<Value> userRow(const UserRecord& user, const Calendar& calendar) {
  const Outcome outcome = service::outcomeOf(user);
  // Of who is left alone the dates say nothing; of who cannot be read they are another's.
  const bool dated = outcome != Outcome::Skipped && user.accountFound;
  const bool known = dated && !user.changeAlreadyDue;
  const bool hasAddress = user.data.email != directory::kNoEmail;
  return {user.username,
          service::slotLabel(user.slot),
          known ? Value(user.age) : Value(),
          dated ? Value(user.maxAge) : Value(),
          dated ? dayValue(expiryMoment(user), calendar) : Value(),
          known ? Value(user.daysLeft()) : Value(),
          hasAddress ? Value(user.data.email) : Value(),
          textValue(user.data.firstName),
          textValue(user.data.lastName),
          outcomeCode(outcome),
          Value(service::outcomeLabel(outcome, notify::PassMode::Dry), outcomeTone(outcome)),
          user.emailedText == "yes",
          user.expiry == notify::Expiry::Forced,
          textValue(whyToday(user))};
}

}  // namespace console
