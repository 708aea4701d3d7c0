#include "service/user_examiner.h"

#include <algorithm>
#include <bit>
#include <cstddef>

#include "base/ascii.h"
#include "base/timestamp.h"
#include "directory/password_expiry.h"
#include "notify/run_logs.h"
#include "notify/warning_email.h"
#include "platform/system/files.h"
#include "platform/text/code_page.h"
#include "service/user_list.h"

namespace service {
namespace {

using notify::Expiry;
using notify::UserRecord;

// Shorter names count as dealt with already.
constexpr std::size_t kShortestName = 3;

bool isPastMaximum(const UserRecord& user) {
  if (user.directoryPolicy) return user.passwordExpires != 0 && user.daysLeft() <= 0;
  return static_cast<std::int32_t>(user.age) >= user.maxAge && user.maxAge != 0;
}

constexpr const char* kRule = "---------------------------\n";

}  // namespace

UserRecord UserExaminer::examine(const PolicyInHand& policy, const std::string& listed) {
  UserRecord user;
  user.slot = policy.slot;
  user.policyName = policy.name;
  user.directoryPolicy = policy.directoryPolicy;
  user.maxAge = policy.maxAge;
  user.emailWarnings = policy.emailWarnings;
  user.age = pass_.ageBefore;
  const std::u16string name = platform::ansiToUtf16(listed);
  user.username = platform::utf16ToAnsi(name);
  if (log_.enabled()) {
    log_.print("timestamp=%s\n", base::timestampText(host_.clock.localTime()).c_str());
    log_.print("username=%s\n", user.username.c_str());
  }
  if (!name.empty() && name.back() == u'$') {
    user.skipReasons |= notify::kSkipComputerAccount;
    log_.print("  Username contains $ character.  Skipping User.\n");
  }
  if (!policy.excluded.empty() && policy.excluded.count(nameKey(user.username)) != 0) {
    user.skipReasons |= notify::kSkipExcluded;
    log_.print(" user excluded from policy\n");
  }
  screenAccount(name, user);
  claimUser(name, user);
  if (user.skipReasons == 0) judge(name, user);
  pass_.ageBefore = user.age;
  return user;
}

void UserExaminer::judge(const std::u16string& name, UserRecord& user) {
  if (!readAge(name, user)) return;
  user.inWarningPeriod = isInWarningPeriod(user);
  if (user.inWarningPeriod) warn(name, user);
  if (isPastMaximum(user)) expire(name, user);
}

// Unsigned, so that a threshold stored as a negative number puts nearly everybody outside.
bool UserExaminer::isInWarningPeriod(const UserRecord& user) const {
  if (user.directoryPolicy) {
    return user.passwordExpires != 0 &&
           user.daysLeft() <= static_cast<std::int32_t>(pass_.settings.warningThreshold);
  }
  return user.age + pass_.settings.warningThreshold >= static_cast<std::uint32_t>(user.maxAge);
}

// By the account call, except where that cannot change what becomes of the user: where by the
// search of the pass the password is neither in its warning period nor past its maximum age, and
// will not be for a while.
platform::AccountResult UserExaminer::readAccount(const std::u16string& name,
                                                  const UserRecord& user,
                                                  platform::UserInfo& info) const {
  if (search_.find(name, info)) {
    UserRecord later;
    later.age = (info.passwordAge + directory::kAgeTolerance) / directory::kSecondsPerDay;
    later.maxAge = user.maxAge;
    later.directoryPolicy = user.directoryPolicy;
    if (user.directoryPolicy) {
      directoryPolicy_.foretell(name, info, directory::kAgeTolerance, later);
    }
    if (!isInWarningPeriod(later) && !isPastMaximum(later)) return {};
  }
  return host_.accounts.userInfo(name, info);
}

void UserExaminer::screenAccount(const std::u16string& name, UserRecord& user) {
  platform::UserInfo info;
  if (!readAccount(name, user, info).ok()) {
    // Nobody is judged by the directory's time for the user before.
    if (pass_.settings.skipUnreadableAccounts || user.directoryPolicy) {
      user.skipReasons |= notify::kSkipUnreadable;
    }
    return;
  }
  user.accountFound = true;
  user.changeAlreadyDue = info.passwordExpired != 0;
  screenFlags(info.flags, user);
  user.age = info.passwordAge / directory::kSecondsPerDay;
  directoryPolicy_.apply(name, info, DirectoryPolicy::Reading::OfThePass, user);
}

// The flags are tested and logged one by one; any of them skips the user.
void UserExaminer::screenFlags(std::uint32_t flags, UserRecord& user) {
  const struct {
    std::uint32_t flag;
    notify::SkipReason reason;
    const char* text;
  } screens[] = {
      {platform::kAccountDisabled, notify::kSkipDisabled, "  disabled account: %s\n"},
      {platform::kPasswordDontExpire, notify::kSkipNeverExpires,
       "  account with non-expiring pw: %s\n"},
      {platform::kPasswordCantChange, notify::kSkipCannotChange,
       "  account cannot change pw: %s\n"},
  };
  for (const auto& screen : screens) {
    if ((flags & screen.flag) == 0) continue;
    user.skipReasons |= screen.reason;
    log_.print(screen.text, user.username.c_str());
  }
}

// A user belongs to the first policy that names him, also when his account is then skipped.
void UserExaminer::claimUser(const std::u16string& name, UserRecord& user) {
  const bool excluded = (user.skipReasons & notify::kSkipExcluded) != 0;
  const bool longEnough = name.size() >= kShortestName;
  if (longEnough && !excluded && pass_.processed.append(name)) {
    log_.print("  user added: %s\n", user.username.c_str());
    log_.print("  listcount: %i\n", static_cast<int>(pass_.processed.count()));
    return;
  }
  if (excluded) return;
  user.skipReasons |= longEnough ? notify::kSkipProcessedEarlier : notify::kSkipNameTooShort;
  if (log_.enabled()) {
    log_.print("  account processed earlier.\n");
    pass_.skipList.append(notify::skippedUserLine(user));
  }
}

// The second reading of the account. Who may be mailed or expired by the first one is read as the
// account is now: a pass takes long, and he may have changed his password since it began. False
// when the user is left alone after that.
bool UserExaminer::readAge(const std::u16string& name, UserRecord& user) {
  const bool current = user.accountFound && !pass_.settings.reportOnly &&
                       (isInWarningPeriod(user) || isPastMaximum(user));
  platform::UserInfo info;
  const platform::AccountResult result =
      current ? host_.accounts.currentUserInfo(name, info) : readAccount(name, user, info);
  if (current && !result.ok()) {
    user.readError = result.text;
    user.accountFound = result.status != platform::kNetUserNotFound;  // gone since the pass began
    log_.print("  account could not be read again: %s\n", result.text.c_str());
    return false;
  }
  if (!result.ok()) return true;  // unknown: the age of the user before stands
  const unsigned long age = info.passwordAge;
  log_.print("  Password age:  %lu days, %02lu:%02lu:%02lu\n", age / directory::kSecondsPerDay,
             age % directory::kSecondsPerDay / 3600, age % 3600 / 60, age % 60);
  user.age = info.passwordAge / directory::kSecondsPerDay;
  constexpr std::int64_t kFileTimePerSecond = 10'000'000;
  user.passwordSet = info.passwordExpired != 0
                         ? 0
                         : host_.clock.fileTime() / kFileTimePerSecond - info.passwordAge;
  if (current) {
    screenFlags(info.flags, user);
    user.readError = directoryPolicy_.apply(name, info, DirectoryPolicy::Reading::Current, user);
    if (!user.readError.empty()) return false;
  }
  return user.skipReasons == 0;
}

void UserExaminer::warn(const std::u16string& name, UserRecord& user) {
  const std::int32_t countdown = user.daysLeft();
  lookUpEmail(name, user);

  const config::ExpirationSettings& settings = pass_.settings;
  const bool disabled = false;  // disabled accounts do not get here
  log_.print(
      "  bEmailWarnings: %i  reportOnly: %i  bDisabled: %i  bEmailRunToday: %i"
      "  bEmailUserOK: %i  countdown: %i\n",
      static_cast<int>(user.emailWarnings), settings.reportOnly, disabled, pass_.emailedToday,
      pass_.mayEmail, countdown);
  log_.print("  countdown: %i\twarning1: %i\twarning2: %i\twarning3: %i\n", countdown,
             settings.warnings[0], settings.warnings[1], settings.warnings[2]);
  const bool onWarningDay = matchesWarningDay(countdown);

  const bool hasAddress = user.data.email != directory::kNoEmail;
  const std::string against = reasonsAgainstMail(user);
  const bool dueToday = pass_.memory.state() == WarningMemory::State::Ready
                            ? pass_.memory.isDue(user)
                            : onWarningDay || !pass_.intervalMode;
  const bool later = against.empty() && mailsOnlyWithExpiry(user, dueToday);
  user.emailDue = against.empty() && dueToday && !later;
  user.managerDue = against.empty() && !later && isCopyDue(user, dueToday);
  user.noMailReasons = noMailReasons(user, dueToday);
  user.emailedText = later && hasAddress ? "no (mailed when the password is expired)" : "no";
  if (hasAddress && !against.empty()) user.emailedText = against;
  if (hasAddress && user.emailDue) {
    sendWarning(onWarningDay, user);
  } else {
    user.noMail = static_cast<notify::NoMail>(std::countr_zero(user.noMailReasons));
  }

  if (countdown > 0 && user.mailHeld) {
    user.upcomingRow = pass_.report.hold(notify::RunReport::Table::Upcoming);
  } else if (countdown > 0) {
    pass_.report.addUpcoming(user);
  }
  pass_.expiringSoonLog.append(notify::expiringSoonLine(host_.clock.localTime(), user));
}

void UserExaminer::lookUpEmail(const std::u16string& name, UserRecord& user) {
  if (user.emailWarnings != 1 || pass_.emailedToday) return;
  log_.print("  --BEGIN GETEMAIL\n");
  if (!pass_.record.directoryBound) {
    log_.print("%sAD Connection not OK\n%s", kRule, kRule);
  } else {
    const platform::HResult looked = domain_.getEmailBound(name, user.data);
    // Without a surname a user has no address: meant, and no failure of the look-up.
    if (looked == platform::kAdsPropertyNotFound) {
      user.noMail = notify::NoMail::NoSurname;
    } else if (platform::failed(looked)) {
      user.lookUpError = host_.directory.errorText(looked);
    }
  }
  const directory::UserDirectoryData& data = user.data;
  log_.print("  User Object Properties\n");
  log_.print("    email: %s\n", data.email.c_str());
  log_.print("    fname: %s\n", data.firstName.c_str());
  log_.print("    lname: %s\n", data.lastName.c_str());
  log_.print("    username: %s\n", user.username.c_str());
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

// Whether the manager is to hear of it, apart from what speaks against every mail.
bool UserExaminer::isCopyDue(const UserRecord& user, bool dueToday) const {
  const std::uint32_t days = pass_.settings.managerDays;
  if (days == 0 || user.daysLeft() > static_cast<std::int32_t>(days)) return false;
  const bool remembers = pass_.memory.state() == WarningMemory::State::Ready;
  return remembers ? pass_.memory.isCopyDue(user) : dueToday;
}

// "no " and every reason why nobody of this policy is mailed now; empty when there is none.
std::string UserExaminer::reasonsAgainstMail(const UserRecord& user) const {
  const bool held = pass_.memory.state() == WarningMemory::State::Held;
  if (user.emailWarnings == 1 && !pass_.settings.reportOnly && pass_.mayEmail && !held) return "";
  std::string text = "no ";
  if (user.emailWarnings == 0) text += "(not configured to email warnings)";
  if (pass_.settings.reportOnly) text += "(in ReportOnly mode)";
  if (!pass_.mayEmail) text += "(user emailed earlier today)";
  if (held) text += "(warnings are held back)";
  return text;
}

// The address is not looked up when nobody of the policy is mailed anyway.
std::uint32_t UserExaminer::noMailReasons(const UserRecord& user, bool dueToday) const {
  using enum notify::NoMail;
  const bool lookedUp = user.emailWarnings == 1 && !pass_.emailedToday;
  const bool answered = pass_.record.directoryBound && user.lookUpError.empty();
  const bool noSurname = user.noMail == NoSurname;
  const bool noAddress = user.data.email == directory::kNoEmail;
  const bool remembers = pass_.memory.state() == WarningMemory::State::Ready;
  const struct {
    notify::NoMail reason;
    bool holds;
  } reasons[] = {
      {PolicyMailsNobody, user.emailWarnings != 1},
      {MailedToday, pass_.emailedToday || !pass_.mayEmail},
      {LookUpFailed, lookedUp && !answered},
      {NoSurname, lookedUp && answered && noSurname},
      {NoAddress, lookedUp && answered && noAddress && !noSurname},
      {ReportOnly, pass_.settings.reportOnly},
      {HeldBack, pass_.memory.state() == WarningMemory::State::Held},
      {WithExpiry, mailsOnlyWithExpiry(user, dueToday)},
      {remembers ? Remembered : NotAWarningDay, !dueToday},
  };
  std::uint32_t bits = 0;
  for (const auto& [reason, holds] : reasons) {
    if (holds) bits |= notify::noMailBit(reason);
  }
  return bits;
}

void UserExaminer::sendWarning(bool onWarningDay, UserRecord& user) {
  user.mail = notify::sendWarningEmail(pass_.mailContext(host_, log_), user);
  user.noMail = notify::NoMail::None;
  user.mailFailed = !user.mail.sent();
  user.mailHeld = user.mailFailed && user.mail.mayRetry && pass_.retriesLeft > 0;
  user.emailedText = user.mailFailed ? "no (smtp failure)" : "yes";
  if (!user.mailFailed) pass_.memory.mailed(user);
  if (onWarningDay) log_.print("  user matches a warning interval.\n\n");
}

// The account is read again: the wait was long. The row keeps the age it was made for.
void UserExaminer::retryWarning(UserRecord& user) {
  const std::u16string name = platform::ansiToUtf16(user.username);
  user.mailHeld = false;
  const std::string against = reasonsAgainstMail(user);
  bool due = against.empty();
  UserRecord now = user;
  if (due && user.expiry == Expiry::Forced) {
    platform::UserInfo info;
    const platform::AccountResult result = host_.accounts.currentUserInfo(name, info);
    due = !result.ok() || info.passwordExpired != 0;
  } else if (due) {
    due = readAge(name, now) && isInWarningPeriod(now);
  }
  if (due) {
    sendWarning(false, now);
    user.mail = now.mail;
    user.mailFailed = now.mailFailed;
    user.mailHeld = now.mailHeld;
    user.emailedText = now.emailedText;
    return;
  }
  user.readError = now.readError;
  user.mailFailed = false;
  user.managerDue = false;
  user.emailedText = against.empty() ? "no" : against;
  user.noMail = against.empty() ? notify::NoMail::Changed : notify::NoMail::HeldBack;
}

void UserExaminer::expire(const std::u16string& name, UserRecord& user) {
  if (user.directoryPolicy) {
    user.expiry = Expiry::ByDirectory;
  } else if (pass_.settings.reportOnly) {
    user.expiry = Expiry::OnlyReported;
  } else if (pass_.expiresNobody) {
    user.expiry = Expiry::Withheld;
  } else if (pass_.settings.maxExpirations != 0 || pass_.settings.expireOnlyNotified) {
    user.expiryHeld = true;
    user.expiredRow = pass_.report.hold(notify::RunReport::Table::Expired);
    return;
  } else if (!forceChange(name, user)) {
    return;
  }
  pass_.report.addExpired(user);
  log_.print("  --STAGE 400\n");
}

std::optional<NoNotice> UserExaminer::expireHeld(UserRecord& user) {
  const std::u16string name = platform::ansiToUtf16(user.username);
  if (!readAge(name, user)) return {};
  if (!isPastMaximum(user)) {
    if (user.noMail == notify::NoMail::WithExpiry) user.noMail = notify::NoMail::Changed;
    return {};
  }
  const bool notify = pass_.settings.expireOnlyNotified;
  if (notify) {
    if (const std::optional<NoNotice> reason = notifyOfExpiry(name, user)) return reason;
  } else if (user.noMail == notify::NoMail::WithExpiry) {
    user.emailDue = true;
    sendWarning(false, user);
  }
  if (!forceChange(name, user)) return {};
  if (notify && user.expiry == Expiry::Forced && user.data.email == directory::kNoEmail &&
      !pass_.memory.isNotified(user)) {
    pass_.record.findings.problem("the password of " + user.username +
                                  " was expired without a mail to the user: the directory has no "
                                  "e-mail address, or no surname");
  }
  log_.print("  --STAGE 400\n");
  return {};
}

// The mail says that the password has expired. So where an expiry may be left for a later pass it
// goes out right before the expiry: with expireOnlyNotified always, with maxExpirations when a mail
// is due at all.
bool UserExaminer::mailsOnlyWithExpiry(const UserRecord& user, bool dueToday) const {
  const config::ExpirationSettings& settings = pass_.settings;
  const bool held = settings.expireOnlyNotified || (settings.maxExpirations != 0 && dueToday);
  return held && !user.directoryPolicy && isPastMaximum(user);
}

// Nothing when the user knows, or has no address to write to.
std::optional<NoNotice> UserExaminer::notifyOfExpiry(const std::u16string& name, UserRecord& user) {
  if (pass_.memory.isNotified(user)) return {};
  if (user.emailWarnings != 1) return NoNotice::PolicyMailsNobody;
  if (!pass_.mayEmail) return NoNotice::MailedToday;
  if (!reasonsAgainstMail(user).empty()) return NoNotice::HeldBack;
  if (!user.inWarningPeriod) lookUpEmail(name, user);
  if (!pass_.record.directoryBound || !user.lookUpError.empty()) return NoNotice::AddressUnknown;
  user.emailDue = true;
  user.managerDue = isCopyDue(user, true);
  user.emailedText = "no";
  if (user.data.email == directory::kNoEmail) return {};
  sendWarning(false, user);
  if (user.mailFailed) return NoNotice::MailFailed;
  return {};
}

// False when the user has changed the password since it was judged, and it is not past its maximum
// any more.
bool UserExaminer::forceChange(const std::u16string& name, UserRecord& user) {
  log_.print("  Expiring password for user=%s\n", user.username.c_str());
  const int unansweredBefore = pass_.unansweredWrites;
  platform::AccountResult result = writeExpiry(name, user);
  if (result.status == platform::kNetPasswordChanged) {
    log_.print("  password was changed meanwhile\n");
    if (!readAge(name, user) || !isPastMaximum(user)) return false;
    result = writeExpiry(name, user);
  }
  const bool silent = result.status == platform::kNetNoDomainController;
  const bool asked = pass_.unansweredWrites != unansweredBefore;
  user.expiry = result.ok()       ? Expiry::Forced
                : silent && asked ? Expiry::Unanswered
                                  : Expiry::Refused;
  user.refusal = result.text;
  return true;
}

// A directory that did not answer this twice in a row is not asked again: a pass must not wait for
// it once a user.
platform::AccountResult UserExaminer::writeExpiry(const std::u16string& name,
                                                  const UserRecord& user) {
  constexpr int kMostUnanswered = 2;
  if (pass_.unansweredWrites == kMostUnanswered) {
    return {platform::kNetNoDomainController,
            "not tried: the directory did not answer twice in a row"};
  }
  // Accounts that are not this machine's own are written attribute by attribute in any case.
  const bool byDirectory =
      base::equalsNoCase(pass_.settings.expireBy, config::kExpireByDirectory) &&
      host_.accounts.ofThisMachineOnly();
  platform::AccountResult result =
      directory::expireUserPassword(host_.accounts, host_.clock, name, user.age, pass_.expiredLog,
                                    byDirectory ? &host_.directory : nullptr);
  const bool silent = result.status == platform::kNetNoDomainController;
  pass_.unansweredWrites = silent ? pass_.unansweredWrites + 1 : 0;
  return result;
}

}  // namespace service
