#include "directory/expiry_times.h"

#include <charconv>
#include <memory>

#include "base/case_fold.h"
#include "base/unicode.h"
#include "directory/domain_directory.h"
#include "platform/directory/ldap_filter.h"

namespace directory {
namespace {

using platform::HResult;

constexpr const char16_t* kLogonName = u"sAMAccountName";
constexpr const char16_t* kExpiryTime = u"msDS-UserPasswordExpiryTimeComputed";
constexpr const char16_t* kUsers = u"(&(objectCategory=person)(objectClass=user))";

std::string keyOf(const std::u16string& name) {
  return base::foldCase(base::utf16ToUtf8(name));
}

// 0 when it is none.
std::int64_t timeOf(const std::u16string& value) {
  const std::string text = base::utf16ToUtf8(value);
  std::int64_t time = 0;
  std::from_chars(text.data(), text.data() + text.size(), time);
  return time > 0 ? time : 0;
}

}  // namespace

void ExpiryTimes::want(bool wanted) {
  wanted_ = wanted;
  loaded_ = false;
  path_.clear();
  times_.clear();
  withAccounts_ = accounts_.readExpiryTimes(wanted);
}

std::string ExpiryTimes::load() {
  if (!wanted_ || withAccounts_) return "";
  const HResult status = search(kUsers);
  loaded_ = !platform::failed(status);
  return loaded_ ? "" : access_.errorText(status);
}

std::int64_t ExpiryTimes::of(const std::u16string& name, const platform::UserInfo& info) const {
  if (withAccounts_) return info.passwordExpires;
  const auto found = times_.find(keyOf(name));
  return found == times_.end() ? 0 : found->second;
}

HResult ExpiryTimes::now(const std::u16string& name, const platform::UserInfo& info,
                         std::int64_t& time) {
  HResult status = platform::kOk;
  if (loaded_) {
    times_.erase(keyOf(name));
    status = search(u"(&(objectCategory=person)(objectClass=user)(sAMAccountName=" +
                    platform::escapeFilterValue(name) + u"))");
  }
  time = of(name, info);
  return status;
}

// Takes the times of all users that the filter finds.
HResult ExpiryTimes::search(const std::u16string& filter) {
  access_.initialise();
  const HResult status = takeTimes(filter);
  access_.uninitialise();
  return status;
}

HResult ExpiryTimes::takeTimes(const std::u16string& filter) {
  std::unique_ptr<platform::DirectorySearch> domain;
  std::unique_ptr<platform::SearchRows> rows;
  HResult status = path_.empty() ? getRootDse(access_, log_, path_) : platform::kOk;
  if (!platform::failed(status)) status = openDomainSearch(access_, path_, domain);
  if (platform::failed(status)) return status;
  status = domain->execute(filter, {kLogonName, kExpiryTime}, rows);
  if (platform::failed(status)) return status;
  return forEachRow(access_, *rows, [this](platform::SearchRows& row) {
    platform::SearchColumn name, time;
    if (!platform::failed(row.column(kLogonName, name)) &&
        !platform::failed(row.column(kExpiryTime, time))) {
      times_[keyOf(name.firstValue)] = timeOf(time.firstValue);
    }
    return platform::kOk;
  });
}

}  // namespace directory
