// Account data as the network management functions give it: flags and password age of one account,
// the domain's maximum password age, and the forced change at next logon.
// Used by the thread of the pass only. A call may block for as long as the directory takes.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <string>

namespace platform {

// NET_API_STATUS numbers.
using NetStatus = std::uint32_t;
inline constexpr NetStatus kNetSuccess = 0;
inline constexpr NetStatus kNetAccessDenied = 5;
inline constexpr NetStatus kNetWriteFault = 29;
inline constexpr NetStatus kNetReadFault = 30;
inline constexpr NetStatus kNetUserNotFound = 2221;
inline constexpr NetStatus kNetNoDomainController = 2453;
// Not one of the system's (bit 29 is set): the password is not the one that was read any more.
inline constexpr NetStatus kNetPasswordChanged = 0x20000001;

// How a call ended: its number, and for a failure what it means in one line (in the ANSI
// code page, no secret).
struct AccountResult {
  NetStatus status = kNetSuccess;
  std::string text;

  bool ok() const { return status == kNetSuccess; }
};

// Bits of UserInfo::flags.
inline constexpr std::uint32_t kAccountDisabled = 0x2;
inline constexpr std::uint32_t kPasswordCantChange = 0x40;
inline constexpr std::uint32_t kPasswordDontExpire = 0x10000;
inline constexpr std::uint32_t kSmartcardRequired = 0x40000;  // the password never expires either

// UserInfo::passwordExpires of a password that the directory never lets expire.
inline constexpr std::int64_t kNoExpiryTime = std::numeric_limits<std::int64_t>::max();

// What this system reads of user information level 3, and the time of expiry beside it.
struct UserInfo {
  std::uint32_t flags = 0;
  std::uint32_t passwordAge = 0;      // seconds
  std::uint32_t passwordExpired = 0;  // non-zero: must be changed at next logon
  // FILETIME at which the directory's own policies let the password expire; 0: not known, or to be
  // changed at next logon. Only after readExpiryTimes(true).
  std::int64_t passwordExpires = 0;
  std::shared_ptr<void> native;  // the system's own record, for setUserInfo; may be null
};

// DomainModals::maxPasswordAge of a domain whose passwords never expire.
inline constexpr std::uint32_t kPasswordNeverExpires = 0xFFFFFFFF;

struct DomainModals {
  std::uint32_t maxPasswordAge = 0;  // seconds
};

class AccountDatabase {
 public:
  virtual ~AccountDatabase() = default;
  // Whether the readings that follow are to bring UserInfo::passwordExpires; to be called before
  // the pass begins, and false until then. False when this database never brings it.
  virtual bool readExpiryTimes(bool /*wanted*/) { return false; }
  // Level 3 of the account with this logon name (without regard to case). May be as old as the
  // pass. `info` is set on success only.
  virtual AccountResult userInfo(const std::u16string& name, UserInfo& info) = 0;
  // The same as it is now, for an account that is about to be mailed or expired. One round trip.
  virtual AccountResult currentUserInfo(const std::u16string& name, UserInfo& info) {
    return userInfo(name, info);
  }
  // Writes back a record that was read last. Of its fields only a non-zero passwordExpired is
  // changed by this system. kNetPasswordChanged, and nothing is written, when the implementation
  // sees that the password was changed since it was read.
  virtual AccountResult setUserInfo(const std::u16string& name, const UserInfo& info) = 0;
  // Level 0 of the domain.
  virtual NetStatus domainModals(DomainModals& modals) = 0;
  // True when the accounts are those of this machine's own database, which holds the domain's users
  // on a domain controller only.
  virtual bool ofThisMachineOnly() const { return false; }
};

}  // namespace platform
