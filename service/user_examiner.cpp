#include "service/user_examiner.h"

#include <algorithm>
#include <cstddef>

#include "base/timestamp.h"
#include "directory/password_expiry.h"
#include "notify/run_logs.h"
#include "notify/warning_email.h"
#include "platform/system/files.h"
#include "platform/text/code_page.h"
#include "service/user_list.h"

namespace service {
namespace {

// Shorter names count as dealt with already.
constexpr std::size_t kShortestName = 3;

constexpr const char* kRule = "---------------------------\n";

}  // namespace

UserVerdict UserExaminer::examine(const PolicyInHand& policy, std::string line) {
  UserVerdict verdict;
  verdict.slot = policy.slot;
  verdict.maxAge = policy.maxAge;
  cutLineEnd(line);
  const std::u16string name = platform::ansiToUtf16(line);
  verdict.username = platform::utf16ToAnsi(name);
  if (log_.enabled()) {
    log_.print("timestamp=%s\n", base::timestampText(host_.clock.localTime()).c_str());
    log_.print("username=%s\n", verdict.username.c_str());
  }
  if (!name.empty() && name.back() == u'$') {
    verdict.skipReasons |= kSkipComputerAccount;
    log_.print("  Username contains $ character.  Skipping User.\n");
  }
  if (!policy.excluded.empty() && policy.excluded.count(nameKey(verdict.username)) != 0) {
    verdict.skipReasons |= kSkipExcluded;
    log_.print(" user excluded from policy\n");
  }
  screenAccount(name, verdict);
  claimUser(name, verdict);
  if (verdict.skipReasons != 0) return verdict;

  pass_.user = {};
  pass_.user.username = verdict.username;
  readAge(name);
  verdict.age = pass_.age;
  // Unsigned, so that a threshold stored as a negative number puts nearly everybody outside.
  verdict.inWarningPeriod =
      pass_.age + pass_.settings.warningThreshold >= static_cast<std::uint32_t>(policy.maxAge);
  if (verdict.inWarningPeriod) warn(policy, name, verdict);
  if (static_cast<std::int32_t>(pass_.age) >= policy.maxAge && policy.maxAge != 0) {
    expire(policy, name, verdict);
  }
  return verdict;
}

// The flags are tested and logged one by one; any of them skips the user.
void UserExaminer::screenAccount(const std::u16string& name, UserVerdict& verdict) {
  platform::UserInfo info;
  if (host_.accounts.userInfo(name, info) != platform::kNetSuccess) return;
  verdict.accountFound = true;
  verdict.changeAlreadyDue = info.passwordExpired != 0;
  const struct {
    std::uint32_t flag;
    SkipReason reason;
    const char* text;
  } screens[] = {
      {platform::kAccountDisabled, kSkipDisabled, "  disabled account: %s\n"},
      {platform::kPasswordDontExpire, kSkipNeverExpires, "  account with non-expiring pw: %s\n"},
      {platform::kPasswordCantChange, kSkipCannotChange, "  account cannot change pw: %s\n"},
  };
  for (const auto& screen : screens) {
    if ((info.flags & screen.flag) == 0) continue;
    verdict.skipReasons |= screen.reason;
    log_.print(screen.text, verdict.username.c_str());
  }
  pass_.age = info.passwordAge / directory::kSecondsPerDay;
}

// A user belongs to the first policy that names him, also when his account is then skipped.
void UserExaminer::claimUser(const std::u16string& name, UserVerdict& verdict) {
  const bool excluded = (verdict.skipReasons & kSkipExcluded) != 0;
  const bool longEnough = name.size() >= kShortestName;
  if (longEnough && !excluded && pass_.processed.append(name)) {
    log_.print("  user added: %s\n", verdict.username.c_str());
    log_.print("  listcount: %i\n", static_cast<int>(pass_.processed.count()));
    return;
  }
  if (excluded) return;
  verdict.skipReasons |= longEnough ? kSkipProcessedEarlier : kSkipNameTooShort;
  if (log_.enabled()) {
    log_.print("  account processed earlier.\n");
    notify::appendSkippedUser(verdict.username);
  }
}

void UserExaminer::readAge(const std::u16string& name) {
  platform::UserInfo info;
  if (host_.accounts.userInfo(name, info) != platform::kNetSuccess) return;
  const unsigned long age = info.passwordAge;
  log_.print("  Password age:  %lu days, %02lu:%02lu:%02lu\n", age / directory::kSecondsPerDay,
             age % directory::kSecondsPerDay / 3600, age % 3600 / 60, age % 60);
  pass_.age = info.passwordAge / directory::kSecondsPerDay;
  pass_.user.passwordAge = pass_.age;
}

void UserExaminer::warn(const PolicyInHand& policy, const std::u16string& name,
                        UserVerdict& verdict) {
  const auto countdown = static_cast<std::int32_t>(policy.maxAge - pass_.age);
  lookUpEmail(policy, name);
  verdict.email = pass_.user.data.email;

  const config::ExpirationSettings& settings = pass_.settings;
  const bool disabled = false;  // disabled accounts do not get here
  log_.print(
      "  bEmailWarnings: %i  reportOnly: %i  bDisabled: %i  bEmailRunToday: %i"
      "  bEmailUserOK: %i  countdown: %i\n",
      static_cast<int>(policy.emailWarnings), settings.reportOnly, disabled, pass_.emailedToday,
      pass_.mayEmail, countdown);
  log_.print("  countdown: %i\twarning1: %i\twarning2: %i\twarning3: %i\n", countdown,
             settings.warnings[0], settings.warnings[1], settings.warnings[2]);
  const bool onWarningDay = matchesWarningDay(countdown);

  const bool hasAddress = verdict.email != directory::kNoEmail;
  const std::string refusal = refusalText(policy);
  verdict.emailDue = refusal.empty() && (onWarningDay || !pass_.intervalMode);
  if (!hasAddress) {
    verdict.emailedText = "no";
  } else if (!refusal.empty()) {
    verdict.emailedText = refusal;
  } else if (!verdict.emailDue) {
    verdict.emailedText = "no";
  } else {
    sendWarning(countdown, onWarningDay, verdict);
  }

  if (countdown > 0) {
    pass_.report.addUpcoming(reportUser(policy), policy.emailWarnings, verdict.emailedText);
    ++pass_.upcomingRows;
  }
  notify::appendExpiringSoon(host_.clock.localTime(), verdict.username, verdict.email, countdown);
}

void UserExaminer::lookUpEmail(const PolicyInHand& policy, const std::u16string& name) {
  if (policy.emailWarnings != 1 || pass_.emailedToday) return;
  log_.print("  --BEGIN GETEMAIL\n");
  if (!pass_.directoryBound) {
    log_.print("%sAD Connection not OK\n%s", kRule, kRule);
  } else {
    domain_.getEmailBound(name, pass_.user.data);
  }
  const directory::UserDirectoryData& data = pass_.user.data;
  log_.print("  User Object Properties\n");
  log_.print("    email: %s\n", data.email.c_str());
  log_.print("    fname: %s\n", data.firstName.c_str());
  log_.print("    lname: %s\n", data.lastName.c_str());
  log_.print("    username: %s\n", pass_.user.username.c_str());
  log_.print("    domain: %s\n", data.domain.c_str());
  log_.print("  --END GETEMAIL\n");
}

bool UserExaminer::matchesWarningDay(std::int32_t countdown) {
  const auto& days = pass_.settings.warnings;
  if (std::none_of(days.begin(), days.end(), [](std::int32_t day) { return day > 0; })) {
    return false;
  }
  pass_.intervalMode = true;
  log_.print("  Configured to email users only at warning interval times.\n");
  const bool matches = std::find(days.begin(), days.end(), countdown) != days.end();
  log_.print(matches ? "  Days before expiration matches a warning interval.\n"
                     : "  No match of warning interval.  No email for this user today.\n\n");
  return matches;
}

// "no " and every reason why nobody of this policy is mailed now; empty when there is none.
std::string UserExaminer::refusalText(const PolicyInHand& policy) const {
  if (policy.emailWarnings == 1 && !pass_.settings.reportOnly && pass_.mayEmail) return "";
  std::string text = "no ";
  if (policy.emailWarnings == 0) text += "(not configured to email warnings)";
  if (pass_.settings.reportOnly) text += "(in ReportOnly mode)";
  if (!pass_.mayEmail) text += "(user emailed earlier today)";
  return text;
}

void UserExaminer::sendWarning(std::int32_t countdown, bool onWarningDay, UserVerdict& verdict) {
  const notify::WarningContext context{host_.registry, host_.clock, log_, pass_.settings,
                                       pass_.user};
  if (notify::sendWarningEmail(context, verdict.username, verdict.email, countdown)) {
    verdict.emailedText = "yes";
  } else {
    verdict.emailedText = "no (smtp failure)";
    verdict.mailFailed = true;
    pass_.smtpFailure = true;
  }
  if (onWarningDay) log_.print("  user matches a warning interval.\n\n");
}

void UserExaminer::expire(const PolicyInHand& policy, const std::u16string& name,
                          UserVerdict& verdict) {
  if (pass_.settings.reportOnly) {
    verdict.expiry = Expiry::OnlyReported;
    pass_.report.addNotExpired(reportUser(policy));
  } else {
    log_.print("  Expiring password for user=%s\n", verdict.username.c_str());
    const bool taken = directory::expireUserPassword(host_.accounts, host_.clock, name, pass_.age);
    verdict.expiry = taken ? Expiry::Forced : Expiry::Refused;
    if (!taken) verdict.refusal = host_.directory.lastError().text;
    pass_.report.addExpired(reportUser(policy));
  }
  ++pass_.expiredUsers;
  log_.print("  --STAGE 400\n");
}

notify::ReportUser UserExaminer::reportUser(const PolicyInHand& policy) const {
  return {pass_.user.username, pass_.user.data.email, pass_.age, policy.maxAge};
}

}  // namespace service
