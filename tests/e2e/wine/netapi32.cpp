// A netapi32.dll that answers from an LDIF file and records what it was asked, for systems without
// accounts of a domain.
#include <set>

#include <windows.h>
#include <lm.h>

#include "tests/e2e/wine/recorded_domain.h"

using namespace stand_in;

namespace {

// What is not freed stays in here.
std::set<void*>& buffers() {
  static std::set<void*> live;
  return live;
}

template <class Record>
BYTE* newBuffer(const Record& content) {
  auto* buffer = new Record(content);
  buffers().insert(buffer);
  return reinterpret_cast<BYTE*>(buffer);
}

}  // namespace

EXPORTED NET_API_STATUS WINAPI NetUserGetInfo(LPCWSTR server, LPCWSTR name, DWORD level,
                                              LPBYTE* buffer) {
  *buffer = nullptr;
  platform::UserInfo info;
  const platform::NetStatus status = domain().userInfo(utf16(name), info).status;
  if (!begin("NetUserGetInfo", " server=", server, " level=", level, " user=", name, " -> ",
             status)) {
    return NERR_InternalError;
  }
  if (status != NERR_Success) return status;
  USER_INFO_3 content{};
  content.usri3_flags = info.flags;
  content.usri3_password_age = info.passwordAge;
  content.usri3_password_expired = info.passwordExpired;
  *buffer = newBuffer(content);
  return NERR_Success;
}

EXPORTED NET_API_STATUS WINAPI NetUserSetInfo(LPCWSTR server, LPCWSTR name, DWORD level,
                                              LPBYTE buffer, LPDWORD) {
  const auto* content = reinterpret_cast<const USER_INFO_3*>(buffer);
  platform::UserInfo info;
  info.passwordExpired = content->usri3_password_expired;
  if (!begin("NetUserSetInfo", " server=", server, " level=", level, " user=", name,
             " expired=", info.passwordExpired, " password=", content->usri3_password,
             " buffer=", buffers().contains(buffer) ? "read" : "made")) {
    return ERROR_ACCESS_DENIED;
  }
  return domain().setUserInfo(utf16(name), info).status;
}

EXPORTED NET_API_STATUS WINAPI NetUserModalsGet(LPCWSTR server, DWORD level, LPBYTE* buffer) {
  *buffer = nullptr;
  if (!begin("NetUserModalsGet", " server=", server, " level=", level)) return NERR_InternalError;
  platform::DomainModals modals;
  const platform::NetStatus status = domain().domainModals(modals);
  if (status != NERR_Success) return status;
  USER_MODALS_INFO_0 content{};
  content.usrmod0_max_passwd_age = modals.maxPasswordAge;
  *buffer = newBuffer(content);
  return NERR_Success;
}

EXPORTED NET_API_STATUS WINAPI NetApiBufferFree(LPVOID buffer) {
  // Null is allowed, and frees nothing.
  const bool known = buffer == nullptr || buffers().erase(buffer) == 1;
  record("NetApiBufferFree ", known ? "" : "of an unknown buffer, ", buffers().size(), " left");
  return NERR_Success;  // the memory stays: a second use would be seen above
}
