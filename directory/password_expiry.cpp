// Password ages and the forced change at next logon; see the header.
#include "directory/password_expiry.h"

#include "config/format_text.h"
#include "platform/code_page.h"
#include "platform/files.h"

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
  platform::appendToFile(
      kExpiredPasswordLog,
      config::formatText("\"%s\",\"%s\",\"%i\",\"%s\"\n", timestampText(clock.localTime()).c_str(),
                         platform::utf16ToAnsi(logonName).c_str(),
                         static_cast<int>(passwordAgeDays), "successful"));
  return true;
}

std::string timestampText(const platform::LocalTime& time) {
  return config::formatText("%2u/%02u/%04u %2u:%02u:%02u", static_cast<unsigned>(time.month),
                            static_cast<unsigned>(time.day), static_cast<unsigned>(time.year),
                            static_cast<unsigned>(time.hour), static_cast<unsigned>(time.minute),
                            static_cast<unsigned>(time.second));
}

}  // namespace directory
