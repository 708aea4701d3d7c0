// The editions of the product and their registry keys, all below HKEY_LOCAL_MACHINE; and the kind
// of machine, which decides which of them a machine may have. Used by everything that reads
// settings.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/registry/registry.h"

namespace config {

inline constexpr const char* kPoliciesKey = "Software\\Policies\\Kadro";
inline constexpr const char* kPolicyRootMpe = "Software\\Policies\\Kadro\\PwsentryProMPE";
inline constexpr const char* kPolicyRootMpems = "Software\\Policies\\Kadro\\PwsentryProMPEMS";
inline constexpr const char* kExpirationSubkey = "PWExpiration";
inline constexpr const char* kExpirationKeyMpe =
    "Software\\Policies\\Kadro\\PwsentryProMPE\\PWExpiration";
inline constexpr const char* kExpirationKeyMpems =
    "Software\\Policies\\Kadro\\PwsentryProMPEMS\\PWExpiration";
inline constexpr const char* kProductKey = "Software\\Kadro\\PwsentryPro";
inline constexpr const char* kDirectoryKey = "Software\\Kadro\\PwsentryPro\\Directory";
inline constexpr const char* kServicesKey = "SYSTEM\\CurrentControlSet\\Services\\";
// The parameters of the service, beside what the service manager keeps of it.
inline constexpr const char* kServiceParametersKey =
    "SYSTEM\\CurrentControlSet\\Services\\NRVPasswordExpiration\\Parameters";
inline constexpr const char* kWorkFolderValue = "workFolder";
inline constexpr const char* kLiveProductKey = "Software\\Policies\\NorvynSecurity\\NRVLive";
inline constexpr const char* kProductOptionsKey =
    "System\\CurrentControlSet\\Control\\ProductOptions";

// The policies that a pass loads: slot 0 is the default policy, 1 to 5 are the numbered ones.
inline constexpr int kNamedPolicies = 6;
std::string policySlotName(int slot);  // "DefaultPolicy", "Policy1" .. "Policy5"

// Codes and kinds of machine are empty where there is none.
struct Edition {
  const char* key;          // the root of its policies, which holds its switches too
  const char* osType;       // the kind of machine that it is for
  std::uint32_t policyMax;  // numbered policies
  const char* code;         // of a registry installation
  const char* iniCode;      // of an INI installation
  const char* policyCode;   // these two stand for the key where a policy is named
  const char* oldPolicyCode;
  bool needsLicence;  // in use only with a licence; it then takes the place of the one before it
};

// In the order in which their licences are looked at.
std::span<const Edition> editions();

// What the system says that the machine is: "de" a workstation, "ms" a member server, "dc" a domain
// controller; empty when it says nothing of these.
std::string machineKind(platform::Registry& registry);

}  // namespace config
