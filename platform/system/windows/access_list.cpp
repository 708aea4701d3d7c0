#include "platform/system/windows/access_list.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <memory>

#include <aclapi.h>
#include <ntsecapi.h>
#include <sddl.h>

#include "base/ascii.h"
#include "platform/system/windows/sha1.h"
#include "platform/text/code_page.h"
#include "platform/text/windows/wide_text.h"

namespace platform {
namespace {

struct LocalFreer {
  void operator()(void* memory) const { LocalFree(memory); }
};
template <class T>
using Local = std::unique_ptr<T, LocalFreer>;

// Groups that every user of the domain is in.
constexpr WELL_KNOWN_SID_TYPE kEverybody[] = {WinWorldSid, WinAuthenticatedUserSid,
                                              WinBuiltinUsersSid};

// Whether an entry of the list grants that group one of these rights.
bool grants(ACL* rights, WELL_KNOWN_SID_TYPE who, DWORD wanted) {
  char group[SECURITY_MAX_SID_SIZE];
  DWORD size = sizeof group;
  if (CreateWellKnownSid(who, nullptr, group, &size) == 0) return false;
  void* entry = nullptr;
  for (DWORD i = 0; GetAce(rights, i, &entry) != 0; ++i) {
    auto* allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
    const bool counts = allowed->Header.AceType == ACCESS_ALLOWED_ACE_TYPE &&
                        (allowed->Header.AceFlags & INHERIT_ONLY_ACE) == 0;
    if (counts && (allowed->Mask & wanted) != 0 && EqualSid(&allowed->SidStart, group) != 0) {
      return true;
    }
  }
  return false;
}

std::wstring wideOf(const std::string& ansi) {
  return toWide(ansiToUtf16(ansi));
}

}  // namespace

std::wstring serviceSid(const std::string& service) {
  std::wstring name = wideOf(service);
  const int length = static_cast<int>(name.size());
  LCMapStringW(LOCALE_INVARIANT, LCMAP_UPPERCASE, name.c_str(), length, name.data(), length);
  const std::array<std::uint8_t, 20> digest =
      sha1({reinterpret_cast<const char*>(name.data()), name.size() * sizeof(wchar_t)});
  std::wstring sid = L"S-1-5-80";
  for (std::size_t i = 0; i < digest.size(); i += sizeof(std::uint32_t)) {
    std::uint32_t part = 0;
    std::memcpy(&part, &digest[i], sizeof part);
    sid += L'-' + std::to_wstring(part);
  }
  return sid;
}

std::string objectNameOfKey(const std::string& path) {
  return "MACHINE\\" + path;
}

WinError setAccess(const std::string& object, SE_OBJECT_TYPE type, const wchar_t* sddl,
                   const std::string& service) {
  constexpr std::wstring_view kPlaceholder = L"%SERVICE%";
  std::wstring text = sddl;
  for (std::size_t at = 0; (at = text.find(kPlaceholder)) != std::wstring::npos;) {
    text.replace(at, kPlaceholder.size(), serviceSid(service));
  }
  void* parsed = nullptr;
  BOOL present = FALSE;
  BOOL defaulted = FALSE;
  ACL* list = nullptr;
  if (ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1, &parsed,
                                                           nullptr) == 0) {
    return GetLastError();
  }
  const Local<void> descriptor(parsed);
  if (GetSecurityDescriptorDacl(descriptor.get(), &present, &list, &defaulted) == 0) {
    return GetLastError();
  }
  return SetNamedSecurityInfoW(wideOf(object).data(), type,
                               DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                               nullptr, nullptr, list, nullptr);
}

WinError addAccess(const std::string& object, SE_OBJECT_TYPE type, DWORD rights,
                   const std::string& service) {
  std::wstring name = wideOf(object);
  void* sidMemory = nullptr;
  if (ConvertStringSidToSidW(serviceSid(service).c_str(), &sidMemory) == 0) return GetLastError();
  const Local<void> sid(sidMemory);
  ACL* old = nullptr;
  void* descriptorMemory = nullptr;
  WinError status = GetNamedSecurityInfoW(name.data(), type, DACL_SECURITY_INFORMATION, nullptr,
                                          nullptr, &old, nullptr, &descriptorMemory);
  if (status != ERROR_SUCCESS) return status;
  const Local<void> descriptor(descriptorMemory);
  EXPLICIT_ACCESSW entry{};
  entry.grfAccessPermissions = rights;
  entry.grfAccessMode = GRANT_ACCESS;
  entry.grfInheritance = SUB_CONTAINERS_AND_OBJECTS_INHERIT;
  entry.Trustee.TrusteeForm = TRUSTEE_IS_SID;
  entry.Trustee.TrusteeType = TRUSTEE_IS_WELL_KNOWN_GROUP;
  entry.Trustee.ptstrName = static_cast<LPWSTR>(sid.get());
  ACL* extended = nullptr;
  status = SetEntriesInAclW(1, &entry, old, &extended);
  if (status != ERROR_SUCCESS) return status;
  const Local<ACL> list(extended);
  return SetNamedSecurityInfoW(name.data(), type, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                               list.get(), nullptr);
}

bool isGrantedToEverybody(const std::string& object, SE_OBJECT_TYPE type, DWORD wanted) {
  ACL* rights = nullptr;
  void* memory = nullptr;
  if (GetNamedSecurityInfoW(wideOf(object).data(), type, DACL_SECURITY_INFORMATION, nullptr,
                            nullptr, &rights, nullptr, &memory) != ERROR_SUCCESS) {
    return false;
  }
  const Local<void> descriptor(memory);
  if (rights == nullptr) return true;  // no list: everybody may do everything
  return std::any_of(std::begin(kEverybody), std::end(kEverybody),
                     [=](WELL_KNOWN_SID_TYPE who) { return grants(rights, who, wanted); });
}

WinError addAccountRight(const std::string& account, const wchar_t* right) {
  char sid[SECURITY_MAX_SID_SIZE];
  wchar_t domain[256];
  DWORD sidSize = sizeof sid;
  DWORD domainSize = static_cast<DWORD>(std::size(domain));
  SID_NAME_USE kind{};
  if (LookupAccountNameW(nullptr, wideOf(account).c_str(), sid, &sidSize, domain, &domainSize,
                         &kind) == FALSE) {
    return GetLastError();
  }
  LSA_OBJECT_ATTRIBUTES attributes{};
  LSA_HANDLE policy = nullptr;
  NTSTATUS status =
      LsaOpenPolicy(nullptr, &attributes, POLICY_CREATE_ACCOUNT | POLICY_LOOKUP_NAMES, &policy);
  if (status != 0) return LsaNtStatusToWinError(status);
  std::wstring name = right;
  const auto bytes = static_cast<USHORT>(name.size() * sizeof(wchar_t));
  LSA_UNICODE_STRING text{bytes, bytes, name.data()};
  status = LsaAddAccountRights(policy, sid, &text, 1);
  LsaClose(policy);
  return LsaNtStatusToWinError(status);
}

}  // namespace platform
