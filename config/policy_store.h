// Loads password policies from the registry, or from the INI file of older installations. Loaders
// never fail: a missing key or value gives the field its default, whatever the record held. All
// return 1.
#pragma once

#include <string>

#include "config/policy_record.h"
#include "platform/registry/registry.h"

namespace config {

enum class PolicyStore { Registry, IniFile };

// The older installations' store, in the process's current directory.
inline constexpr const char* kIniFile = ".\\pwsentrypro.ini";

// Sets every field to its default.
int initPolicy(PolicyRecord& policy);

// `name` is a policy name below kPolicyRootMpe ("DefaultPolicy", "Policy1") or an edition code
// ("NRV-SPE"), which stands for that edition's own key. From the registry, `defined` is set when
// the key holds a name of at least 2 characters.
int readPolicy(platform::Registry& registry, PolicyRecord& policy, const std::string& name,
               PolicyStore store);

// The fixed policy of the "live" edition, set over the values the record holds.
int initLivePolicy(PolicyRecord& policy);

// readPolicy from the registry with kPolicyRootMpems as the root; never sets appliesToDomainUsers.
int readPolicyMpems(platform::Registry& registry, PolicyRecord& policy, const std::string& name);

}  // namespace config
