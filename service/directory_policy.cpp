#include "service/directory_policy.h"

#include <algorithm>

#include "base/format_text.h"

namespace service {
namespace {

constexpr std::int64_t kFileTimePerSecond = 10'000'000;
constexpr std::int64_t kFileTimePerDay = kFileTimePerSecond * directory::kSecondsPerDay;

// As ages are counted, in whole days rounded down, so that what is left of a day counts whole.
std::int32_t daysUntil(std::int64_t time, std::int64_t now) {
  const std::int64_t span = time - now;
  return static_cast<std::int32_t>(span / kFileTimePerDay + (span % kFileTimePerDay > 0 ? 1 : 0));
}

void setExpiry(std::int64_t time, std::int32_t daysLeft, notify::UserRecord& user) {
  user.maxAge = static_cast<std::int32_t>(user.age) + daysLeft;
  user.passwordExpires = time / kFileTimePerSecond;
}

}  // namespace

void DirectoryPolicy::prepare(const PolicyTable& slots) {
  wanted_ = std::any_of(slots.begin(), slots.end(), [](const config::PolicyRecord& slot) {
    return slot.defined == 1 && slot.useDirectoryPolicy == 1;
  });
  search_.wantTimes(wanted_);
}

void DirectoryPolicy::begin(const std::string& searchError, config::Findings& findings) {
  if (!wanted_) return;
  domainKnown_ = host_.accounts.domainModals(domain_) == platform::kNetSuccess;
  if (!searchError.empty()) {
    findings.problem("the directory does not say when passwords expire: " + searchError,
                     config::Cause::Directory);
  }
}

void DirectoryPolicy::finish(config::Findings& findings) {
  if (byDomain_ > 0) {
    findings.note(base::formatText(
        "the directory does not say when the passwords of %llu %s expire "
        "(msDS-UserPasswordExpiryTimeComputed): %s",
        static_cast<unsigned long long>(byDomain_), byDomain_ == 1 ? "user" : "users",
        domainKnown_ ? "the domain's maximum password age is taken for them"
                     : "they are left out, because the domain's maximum password age cannot be "
                       "read either"));
  }
  if (wanted_) search_.wantTimes(false);
}

// By the domain's maximum age; 0 when that is not known.
std::int64_t DirectoryPolicy::domainTime(const platform::UserInfo& info, std::int64_t now) const {
  if (!domainKnown_) return 0;
  const bool never = (info.flags & platform::kSmartcardRequired) != 0 ||
                     domain_.maxPasswordAge == platform::kPasswordNeverExpires;
  if (never) return platform::kNoExpiryTime;
  return now + (std::int64_t{domain_.maxPasswordAge} - info.passwordAge) * kFileTimePerSecond;
}

std::string DirectoryPolicy::apply(const std::u16string& name, const platform::UserInfo& info,
                                   Reading reading, notify::UserRecord& user) {
  if (!user.directoryPolicy) return "";
  user.maxAge = 0;
  user.passwordExpires = 0;
  if (info.passwordExpired != 0) return "";  // to be changed at next logon: no time to speak of
  std::int64_t time = 0;
  if (reading == Reading::OfThePass) {
    time = search_.timeOf(name, info);
  } else {
    const platform::HResult status = search_.timeNow(name, info, time);
    if (platform::failed(status)) return host_.directory.errorText(status);
  }
  const std::int64_t now = host_.clock.fileTime();
  if (time == 0) {
    if (reading == Reading::OfThePass) ++byDomain_;
    time = domainTime(info, now);
  }
  if (time == 0) {
    user.skipReasons |= notify::kSkipUnreadable;
  } else if (time == platform::kNoExpiryTime) {
    user.skipReasons |= notify::kSkipNeverExpires;
    log_.print("  by the directory's policy the password never expires: %s\n",
               user.username.c_str());
  } else {
    const std::int32_t left = daysUntil(time, now);
    setExpiry(time, left, user);
    log_.print("  by the directory's policy: maximum age %i days, %i left\n", user.maxAge, left);
  }
  return "";
}

void DirectoryPolicy::foretell(const std::u16string& name, const platform::UserInfo& info,
                               std::uint32_t seconds, notify::UserRecord& user) const {
  const std::int64_t then = host_.clock.fileTime() + seconds * kFileTimePerSecond;
  std::int64_t time = search_.timeOf(name, info);
  if (time == 0) time = domainTime(info, host_.clock.fileTime());
  if (time != 0 && time != platform::kNoExpiryTime) setExpiry(time, daysUntil(time, then), user);
}

}  // namespace service
