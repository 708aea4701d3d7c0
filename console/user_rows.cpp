#include "console/user_rows.h"

#include <array>
#include <utility>

#include "service/policy_table.h"

namespace console {
namespace {

using notify::UserRecord;
using service::Outcome;

// In the order of service::Outcome.
constexpr std::array<const char*, service::kOutcomes> kCodes = {
    "outside", "mail",     "no-mail",         "mail-failed", "force",  "report-only",
    "refused", "withheld", "already-expired", "not-read",    "skipped"};

constexpr std::size_t kUserColumns = 14;

template <typename Number>
Value numberValue(const std::optional<Number>& number) {
  return number ? Value(*number) : Value();
}

std::vector<std::string> policyLabels() {
  std::vector<std::string> labels;
  for (int slot = 0; slot < service::kPolicySlots; ++slot) {
    labels.push_back(service::slotLabel(slot));
  }
  return labels;
}

Value textValue(std::string_view text) {
  return text.empty() ? Value() : Value::borrowed(text);
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
  std::string cause = service::outcomeCause(user, notify::PassMode::Dry);
  if (outcome == Outcome::Expired) return cause.substr(cause.find("; ") + 2);
  const std::string_view label = service::outcomeLabel(outcome, notify::PassMode::Dry);
  if (cause.starts_with(label) && cause.compare(label.size(), 2, ": ") == 0) {
    cause.erase(0, label.size() + 2);
  }
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

UserLine lineOf(const UserRecord& user, const directory::UserDirectoryData& data,
                const Calendar& calendar) {
  UserLine line;
  line.user = user.username;
  if (data.email != directory::kNoEmail) line.address = data.email;
  line.firstName = data.firstName;
  line.lastName = data.lastName;
  line.why = whyToday(user);
  line.slot = user.slot;
  line.leftOut = (user.skipReasons & notify::kSkipExcluded) != 0;
  line.outcome = service::outcomeOf(user);
  line.mailed = user.emailedText == "yes";
  line.forced = user.expiry == notify::Expiry::Forced;
  // Of who is left alone the dates say nothing; of who cannot be read they are another's.
  if (line.outcome == Outcome::Skipped || !user.accountFound) return line;
  line.maximumAge = user.maxAge;
  if (const auto moment = expiryMoment(user)) line.expires = calendar.dayOf(*moment);
  if (user.changeAlreadyDue) return line;
  line.age = user.age;
  line.daysLeft = user.daysLeft();
  return line;
}

void fillUserRow(const UserLine& line, std::vector<Value>& row) {
  static const std::vector<std::string> labels = policyLabels();
  row.clear();
  row.reserve(kUserColumns);
  row.push_back(Value::borrowed(line.user));
  row.push_back(Value::borrowed(labels.at(static_cast<std::size_t>(line.slot))));
  row.push_back(numberValue(line.age));
  row.push_back(numberValue(line.maximumAge));
  row.push_back(line.expires ? Value(dayText(*line.expires)) : Value());
  row.push_back(numberValue(line.daysLeft));
  row.push_back(textValue(line.address));
  row.push_back(textValue(line.firstName));
  row.push_back(textValue(line.lastName));
  row.push_back(Value::borrowed(outcomeCode(line.outcome)));
  row.push_back(Value::borrowed(service::outcomeLabel(line.outcome, notify::PassMode::Dry),
                                outcomeTone(line.outcome)));
  row.emplace_back(line.mailed);
  row.emplace_back(line.forced);
  row.push_back(line.why.empty() ? Value() : Value(line.why));
}

}  // namespace console
