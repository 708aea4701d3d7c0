// Password ages and the forced change at next logon; see the header.
#include "directory/password_expiry.h"

#include "base/format_text.h"
#include "base/timestamp.h"
#include "config/pass_files.h"
#include "platform/system/files.h"
#include "platform/text/code_page.h"

namespace directory {

DomainMaxAge readDomainMaxAge(platform::AccountDatabase& accounts) {
  platform::DomainModals modals;
  if (accounts.domainModals(modals) != platform::kNetSuccess) return {};
  return {modals.maxPasswordAge / kSecondsPerDay, true};
}

bool expireUserPassword(platform::AccountDatabase& accounts, platform::Clock& clock,
                        const std::u16string& logonName, std::uint32_t passwordAgeDays) {
  platform::UserInfo info;
  if (accounts.userInfo(logonName, info) != platform::kNetSuccess) return false;
  info.passwordExpired = kPasswordExpiredMark;
  if (accounts.setUserInfo(logonName, info) != platform::kNetSuccess) return false;
  platform::appendToFile(config::kExpiredPasswordLog,
                         base::formatText("\"%s\",\"%s\",\"%i\",\"%s\"\n",
                                          base::timestampText(clock.localTime()).c_str(),
                                          platform::utf16ToAnsi(logonName).c_str(),
                                          static_cast<int>(passwordAgeDays), "successful"));
  return true;
}

}  // namespace directory
