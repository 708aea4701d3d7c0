#include "platform/directory/adsi/system_accounts.h"

#include <windows.h>
#include <lm.h>

#include "platform/directory/adsi/error_words.h"
#include "platform/text/windows/wide_text.h"

namespace platform {
namespace {

constexpr const wchar_t* kThisMachine = nullptr;

struct BufferDeleter {
  void operator()(void* buffer) const { NetApiBufferFree(buffer); }
};

AccountResult resultOf(NetStatus status) {
  if (status == kNetSuccess) return {};
  return {status, errorWords(status)};
}

class SystemAccounts final : public AccountDatabase {
 public:
  AccountResult userInfo(const std::u16string& name, UserInfo& info) override {
    BYTE* buffer = nullptr;
    const NetStatus status = NetUserGetInfo(kThisMachine, toWide(name).c_str(), 3, &buffer);
    const std::shared_ptr<void> native(buffer, BufferDeleter());
    if (status != kNetSuccess) return resultOf(status);
    if (buffer == nullptr) return resultOf(kNetUserNotFound);
    const auto* record = reinterpret_cast<const USER_INFO_3*>(buffer);
    info.flags = record->usri3_flags;
    info.passwordAge = record->usri3_password_age;
    info.passwordExpired = record->usri3_password_expired;
    info.native = native;
    return {};
  }

  AccountResult setUserInfo(const std::u16string& name, const UserInfo& info) override {
    if (info.native == nullptr) return resultOf(ERROR_INVALID_PARAMETER);
    // The record that was read, so that every other field keeps its value; its password field is
    // null in a record that was read, which leaves the password alone.
    auto* record = static_cast<USER_INFO_3*>(info.native.get());
    record->usri3_password_expired = info.passwordExpired;
    return resultOf(NetUserSetInfo(kThisMachine, toWide(name).c_str(), 3,
                                   reinterpret_cast<BYTE*>(record), nullptr));
  }

  NetStatus domainModals(DomainModals& modals) override {
    BYTE* buffer = nullptr;
    const NetStatus status = NetUserModalsGet(kThisMachine, 0, &buffer);
    const std::unique_ptr<void, BufferDeleter> owner(buffer);
    // A success without data is not a maximum age of 0.
    if (status == kNetSuccess && buffer == nullptr) return kNetNoDomainController;
    if (status != kNetSuccess) return status;
    modals.maxPasswordAge =
        reinterpret_cast<const USER_MODALS_INFO_0*>(buffer)->usrmod0_max_passwd_age;
    return status;
  }

  bool ofThisMachineOnly() const override { return true; }
};

}  // namespace

std::unique_ptr<AccountDatabase> makeSystemAccounts() {
  return std::make_unique<SystemAccounts>();
}

}  // namespace platform
