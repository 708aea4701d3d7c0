// Password ages and the forced change at next logon; see the header.
#include "directory/password_expiry.h"

#include "base/format_text.h"
#include "base/text.h"
#include "base/timestamp.h"
#include "platform/text/code_page.h"

namespace directory {

namespace {

platform::AccountResult writeBy(platform::DirectoryAccess& directory,
                                const std::u16string& logonName) {
  const platform::HResult status = directory.requireNewPassword(logonName);
  if (!platform::failed(status)) return {};
  // The number of a directory that does not answer, for those who count these.
  const bool silent = status == platform::kServerDown;
  return {silent ? platform::kNetNoDomainController : status, directory.errorText(status)};
}

}  // namespace

DomainMaxAge readDomainMaxAge(platform::AccountDatabase& accounts) {
  platform::DomainModals modals;
  if (accounts.domainModals(modals) != platform::kNetSuccess) return {};
  return {modals.maxPasswordAge / kSecondsPerDay, true};
}

platform::AccountResult expireUserPassword(platform::AccountDatabase& accounts,
                                           platform::Clock& clock, const std::u16string& logonName,
                                           std::uint32_t passwordAgeDays,
                                           config::AuditLog& expiredLog,
                                           platform::DirectoryAccess* byDirectory) {
  platform::UserInfo info;
  platform::AccountResult result = accounts.userInfo(logonName, info);
  if (!result.ok()) return result;
  if (info.passwordAge / kSecondsPerDay < passwordAgeDays) {
    return {platform::kNetPasswordChanged, "the password was changed"};
  }
  info.passwordExpired = kPasswordExpiredMark;
  result = byDirectory == nullptr ? accounts.setUserInfo(logonName, info)
                                  : writeBy(*byDirectory, logonName);
  if (!result.ok()) return result;
  expiredLog.append(base::formatText("\"%s\",%s,\"%i\",\"%s\"\n",
                                     base::timestampText(clock.localTime()).c_str(),
                                     base::quotedField(platform::utf16ToAnsi(logonName)).c_str(),
                                     static_cast<int>(passwordAgeDays), "successful"));
  return result;
}

}  // namespace directory
