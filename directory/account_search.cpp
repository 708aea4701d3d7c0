#include "directory/account_search.h"

#include <algorithm>
#include <charconv>
#include <memory>
#include <optional>

#include "base/case_fold.h"
#include "base/unicode.h"
#include "directory/domain_directory.h"
#include "platform/directory/ldap_filter.h"
#include "platform/directory/security_descriptor.h"

namespace directory {
namespace {

using platform::HResult;

constexpr const char16_t* kLogonName = u"sAMAccountName";
constexpr const char16_t* kExpiryTime = u"msDS-UserPasswordExpiryTimeComputed";
constexpr const char16_t* kFlags = u"userAccountControl";
constexpr const char16_t* kComputedFlags = u"msDS-User-Account-Control-Computed";
constexpr const char16_t* kPasswordSet = u"pwdLastSet";
constexpr const char16_t* kDescriptor = u"nTSecurityDescriptor";

// Of kComputedFlags: the password is past the maximum age of the directory's own policies.
constexpr std::int64_t kPasswordExpired = 0x800000;
constexpr std::int64_t kFileTimePerSecond = 10'000'000;
constexpr std::uint32_t kScreenedFlags =
    platform::kAccountDisabled | platform::kPasswordDontExpire | platform::kSmartcardRequired;

std::string keyOf(const std::u16string& name) {
  return base::foldCase(base::utf16ToUtf8(name));
}

std::optional<std::int64_t> number(platform::SearchRows& row, const char16_t* attribute) {
  platform::SearchColumn column;
  if (platform::failed(row.column(attribute, column))) return std::nullopt;
  const std::string text = base::utf16ToUtf8(column.firstValue);
  std::int64_t value = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc()) return std::nullopt;
  return value;
}

std::optional<bool> cannotChangePassword(platform::SearchRows& row) {
  platform::SearchColumn descriptor;
  if (platform::failed(row.column(kDescriptor, descriptor))) return std::nullopt;
  return platform::deniesPasswordChange(descriptor.bytes);
}

}  // namespace

void AccountSearch::wantTimes(bool wanted) {
  timesWanted_ = wanted;
  timesWithAccounts_ = accounts_.readExpiryTimes(wanted);
}

void AccountSearch::drop() {
  timesLoaded_ = false;
  screens_ = false;
  path_.clear();
  found_.clear();
  oldest_.clear();
  oldestSet_ = 0;
  differsAbout_.clear();
}

std::string AccountSearch::load(bool screening, const std::u16string& onlyUser) {
  drop();
  const bool times = timesWanted_ && !timesWithAccounts_;
  if (!times && !screening) return "";
  std::vector<std::u16string> attributes = {kLogonName};
  if (times) attributes.emplace_back(kExpiryTime);
  if (screening) {
    attributes.insert(attributes.end(), {kFlags, kComputedFlags, kPasswordSet, kDescriptor});
  }
  screens_ = screening;
  const HResult status = search(onlyUser, attributes);
  if (platform::failed(status)) {
    drop();
    return access_.errorText(status);
  }
  timesLoaded_ = times;
  if (screens_) compareOldest();
  return "";
}

// The two ways to an account are tried on one, which costs a call a pass. Where the account calls
// are refused, or see other accounts, they are all that a pass goes by. The oldest password is
// likely to be due, so that its account would be read in any case.
void AccountSearch::compareOldest() {
  platform::UserInfo bySearch, byCall;
  if (!find(oldest_, bySearch)) return;
  const std::uint32_t compared =
      platform::kAccountDisabled | platform::kPasswordDontExpire | platform::kPasswordCantChange;
  screens_ = accounts_.userInfo(oldest_, byCall).ok() &&
             (bySearch.flags & compared) == (byCall.flags & compared) &&
             byCall.passwordExpired == 0 && byCall.passwordAge + 1 >= bySearch.passwordAge &&
             byCall.passwordAge <= bySearch.passwordAge + kAgeTolerance;
  if (!screens_) differsAbout_ = oldest_;
}

bool AccountSearch::find(const std::u16string& name, platform::UserInfo& info) const {
  if (!screens_) return false;
  const auto found = found_.find(keyOf(name));
  const std::int64_t now = clock_.fileTime();
  if (found == found_.end() || found->second.passwordSet <= 0 || found->second.passwordSet > now) {
    return false;
  }
  info = platform::UserInfo();
  info.flags = found->second.flags;
  info.passwordAge =
      static_cast<std::uint32_t>((now - found->second.passwordSet) / kFileTimePerSecond);
  return true;
}

std::int64_t AccountSearch::timeOf(const std::u16string& name,
                                   const platform::UserInfo& info) const {
  if (timesWithAccounts_) return info.passwordExpires;
  const auto found = found_.find(keyOf(name));
  return found == found_.end() ? 0 : found->second.expires;
}

HResult AccountSearch::timeNow(const std::u16string& name, const platform::UserInfo& info,
                               std::int64_t& time) {
  HResult status = platform::kOk;
  if (timesLoaded_) {
    found_.erase(keyOf(name));
    status = search(name, {kLogonName, kExpiryTime});
  }
  time = timeOf(name, info);
  return status;
}

// Takes the accounts of all users, or of one.
HResult AccountSearch::search(const std::u16string& user,
                              const std::vector<std::u16string>& attributes) {
  access_.initialise();
  const HResult status = takeAccounts(user, attributes);
  access_.uninitialise();
  return status;
}

HResult AccountSearch::takeAccounts(const std::u16string& user,
                                    const std::vector<std::u16string>& attributes) {
  std::unique_ptr<platform::DirectorySearch> domain;
  std::unique_ptr<platform::SearchRows> rows;
  HResult status = platform::kOk;
  if (path_.empty()) {
    // The screening leaves the debug log as the account calls would.
    config::DebugLog silent = config::DebugLog::nowhere();
    status = getRootDse(access_, timesWanted_ ? log_ : silent, path_);
  }
  if (!platform::failed(status)) status = openDomainSearch(access_, path_, domain);
  if (platform::failed(status)) return status;
  if (attributes.back() == kDescriptor) domain->setForManyDescriptors();
  std::u16string filter = u"(&(objectCategory=person)(objectClass=user)";
  if (!user.empty()) filter += u"(sAMAccountName=" + platform::escapeFilterValue(user) + u")";
  status = domain->execute(filter + u")", attributes, rows);
  if (platform::failed(status)) return status;
  return forEachRow(access_, *rows, [this](platform::SearchRows& row) { return takeAccount(row); });
}

HResult AccountSearch::takeAccount(platform::SearchRows& row) {
  platform::SearchColumn name;
  if (platform::failed(row.column(kLogonName, name))) return platform::kOk;
  Account& account = found_[keyOf(name.firstValue)];
  account.expires = std::max<std::int64_t>(number(row, kExpiryTime).value_or(0), 0);
  if (!screens_) return platform::kOk;
  const std::optional<std::int64_t> flags = number(row, kFlags);
  const std::optional<std::int64_t> computed = number(row, kComputedFlags);
  const std::optional<std::int64_t> passwordSet = number(row, kPasswordSet);
  const std::optional<bool> cannotChange = cannotChangePassword(row);
  // What is not known, or of no use for an age, the account calls have to say.
  if (!flags || !computed || (*computed & kPasswordExpired) != 0 || !passwordSet || !cannotChange) {
    return platform::kOk;
  }
  account.flags = static_cast<std::uint32_t>(*flags) & kScreenedFlags;
  if (*cannotChange) account.flags |= platform::kPasswordCantChange;
  account.passwordSet = *passwordSet;
  if (account.flags == 0 && *passwordSet > 0 && (oldestSet_ == 0 || *passwordSet < oldestSet_)) {
    oldestSet_ = *passwordSet;
    oldest_ = name.firstValue;
  }
  return platform::kOk;
}

}  // namespace directory
