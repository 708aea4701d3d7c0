#include "console/outcome.h"

#include "base/format_text.h"
#include "service/policy_table.h"

namespace console {
namespace {

using base::formatText;
using service::UserVerdict;

std::string skipText(const UserVerdict& verdict) {
  const struct {
    service::SkipReason reason;
    const char* text;
  } reasons[] = {
      {service::kSkipComputerAccount, "computer account"},
      {service::kSkipExcluded, "on this policy's exclude list"},
      {service::kSkipDisabled, "account is disabled"},
      {service::kSkipNeverExpires, "password never expires"},
      {service::kSkipCannotChange, "user cannot change the password"},
      {service::kSkipProcessedEarlier, "an earlier policy or line has this user"},
      {service::kSkipNameTooShort, "name is shorter than 3 characters"},
  };
  std::string text;
  for (const auto& [reason, words] : reasons) {
    if ((verdict.skipReasons & reason) == 0) continue;
    if (!text.empty()) text += "; ";
    text += words;
  }
  return text;
}

std::string agePhrase(const UserVerdict& verdict) {
  if (!verdict.accountFound) {
    return "account not found, age taken as " + base::formatText("%u", verdict.age);
  }
  return base::formatText("age %u of %i days", verdict.age, verdict.maxAge);
}

std::string mailPhrase(const UserVerdict& verdict) {
  if (verdict.emailedText == "yes") return "mailed to " + verdict.email;
  if (verdict.mailFailed) return "mail to " + verdict.email + " failed";
  const std::string prefix = "no ";
  if (verdict.emailedText.compare(0, prefix.size(), prefix) == 0) {
    return "not mailed " + verdict.emailedText.substr(prefix.size());
  }
  if (verdict.emailDue) return "no e-mail address known";
  return verdict.email == "none" ? "not mailed" : "not a warning day";
}

}  // namespace

Outcome outcomeOf(const UserVerdict& verdict) {
  if (verdict.skipReasons != 0) return Outcome::Skipped;
  switch (verdict.expiry) {
    case service::Expiry::Forced:
      return Outcome::Expired;
    case service::Expiry::OnlyReported:
      return Outcome::WouldExpire;
    case service::Expiry::Refused:
      return Outcome::ExpiryRefused;
    case service::Expiry::NotDue:
      break;
  }
  if (!verdict.inWarningPeriod) return Outcome::OutsidePeriod;
  if (verdict.mailFailed) return Outcome::MailFailed;
  return verdict.emailedText == "yes" ? Outcome::Warned : Outcome::NotMailed;
}

const char* outcomeLabel(Outcome outcome) {
  switch (outcome) {
    case Outcome::OutsidePeriod:
      return "outside period";
    case Outcome::Warned:
      return "warned";
    case Outcome::NotMailed:
      return "not mailed";
    case Outcome::MailFailed:
      return "mail failed";
    case Outcome::Expired:
      return "expired";
    case Outcome::WouldExpire:
      return "would expire";
    case Outcome::ExpiryRefused:
      return "expiry refused";
    case Outcome::Skipped:
      return "skipped";
  }
  return "";
}

std::string outcomeReason(const UserVerdict& verdict) {
  const std::string age = agePhrase(verdict);
  const int daysLeft = verdict.maxAge - static_cast<int>(verdict.age);
  switch (outcomeOf(verdict)) {
    case Outcome::Skipped:
      return skipText(verdict);
    case Outcome::OutsidePeriod:
      return verdict.changeAlreadyDue ? "already to change the password at next logon" : age;
    case Outcome::Expired:
      return age + "; change forced at next logon; " + mailPhrase(verdict);
    case Outcome::WouldExpire:
      return age + "; report-only mode; " + mailPhrase(verdict);
    case Outcome::ExpiryRefused:
      return age + "; the directory did not take the forced change; " + mailPhrase(verdict);
    default:
      return age + base::formatText(", %i left; ", daysLeft) + mailPhrase(verdict);
  }
}

std::string slotLabel(int slot) {
  if (slot >= service::kFirstLengthPolicy) {
    return base::formatText("Length%i", slot - service::kFirstLengthPolicy + 1);
  }
  return service::policySlotName(slot);
}

}  // namespace console
