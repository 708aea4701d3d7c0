#include "platform/network/windows/status_text.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include <windows.h>

namespace platform {
namespace {

struct StatusName {
  HRESULT status;
  const char* name;
};

constexpr StatusName kNames[] = {
    {SEC_E_INSUFFICIENT_MEMORY, "SEC_E_INSUFFICIENT_MEMORY"},
    {SEC_E_INVALID_HANDLE, "SEC_E_INVALID_HANDLE"},
    {SEC_E_UNSUPPORTED_FUNCTION, "SEC_E_UNSUPPORTED_FUNCTION"},
    {SEC_E_TARGET_UNKNOWN, "SEC_E_TARGET_UNKNOWN"},
    {SEC_E_INTERNAL_ERROR, "SEC_E_INTERNAL_ERROR"},
    {SEC_E_SECPKG_NOT_FOUND, "SEC_E_SECPKG_NOT_FOUND"},
    {SEC_E_NOT_OWNER, "SEC_E_NOT_OWNER"},
    {SEC_E_INVALID_TOKEN, "SEC_E_INVALID_TOKEN"},
    {SEC_E_LOGON_DENIED, "SEC_E_LOGON_DENIED"},
    {SEC_E_UNKNOWN_CREDENTIALS, "SEC_E_UNKNOWN_CREDENTIALS"},
    {SEC_E_NO_CREDENTIALS, "SEC_E_NO_CREDENTIALS"},
    {SEC_E_MESSAGE_ALTERED, "SEC_E_MESSAGE_ALTERED"},
    {SEC_E_NO_AUTHENTICATING_AUTHORITY, "SEC_E_NO_AUTHENTICATING_AUTHORITY"},
    {SEC_E_WRONG_PRINCIPAL, "SEC_E_WRONG_PRINCIPAL"},
    {SEC_E_UNTRUSTED_ROOT, "SEC_E_UNTRUSTED_ROOT"},
    {SEC_E_ILLEGAL_MESSAGE, "SEC_E_ILLEGAL_MESSAGE"},
    {SEC_E_CERT_EXPIRED, "SEC_E_CERT_EXPIRED"},
    {SEC_E_DECRYPT_FAILURE, "SEC_E_DECRYPT_FAILURE"},
    {SEC_E_ALGORITHM_MISMATCH, "SEC_E_ALGORITHM_MISMATCH"},
    {CERT_E_EXPIRED, "CERT_E_EXPIRED"},
    {CERT_E_UNTRUSTEDROOT, "CERT_E_UNTRUSTEDROOT"},
    {CERT_E_CHAINING, "CERT_E_CHAINING"},
    {CERT_E_CN_NO_MATCH, "CERT_E_CN_NO_MATCH"},
    {CERT_E_WRONG_USAGE, "CERT_E_WRONG_USAGE"},
    {TRUST_E_CERT_SIGNATURE, "TRUST_E_CERT_SIGNATURE"},
};

}  // namespace

std::string statusText(std::uint32_t status) {
  const auto* found = std::find_if(
      std::begin(kNames), std::end(kNames),
      [=](const StatusName& row) { return static_cast<std::uint32_t>(row.status) == status; });
  char number[16];
  std::snprintf(number, sizeof number, "0x%08x", static_cast<unsigned>(status));
  return found == std::end(kNames) ? number : std::string(found->name) + " " + number;
}

}  // namespace platform
