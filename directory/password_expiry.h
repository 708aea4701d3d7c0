// Password age, the domain's maximum age, and the forced change at next logon. Ages are in whole
// days, rounded down. A value that cannot be read keeps its default.
#pragma once

#include <cstdint>
#include <string>

#include "config/audit_log.h"
#include "platform/directory/account_database.h"
#include "platform/directory/directory_access.h"
#include "platform/system/clock.h"

namespace directory {

inline constexpr std::uint32_t kSecondsPerDay = 86400;
// Any non-zero value marks a password as expired; this is the one written.
inline constexpr std::uint32_t kPasswordExpiredMark = 5;

struct DomainMaxAge {
  std::uint32_t days = 0;
  bool known = false;
};

DomainMaxAge readDomainMaxAge(platform::AccountDatabase& accounts);

// Forces a password change at next logon and appends the line of `expiredLog`. Nothing
// is written when the account database refuses, or when the password is younger by now than the
// age that was judged, or is another one (kNetPasswordChanged). With `byDirectory`, which is
// borrowed, one attribute is written by that instead of the account's record.
platform::AccountResult expireUserPassword(platform::AccountDatabase& accounts,
                                           platform::Clock& clock, const std::u16string& logonName,
                                           std::uint32_t passwordAgeDays,
                                           config::AuditLog& expiredLog,
                                           platform::DirectoryAccess* byDirectory = nullptr);

}  // namespace directory
