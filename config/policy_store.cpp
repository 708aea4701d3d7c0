#include "config/policy_store.h"

#include <cstddef>

#include "base/ascii.h"
#include "config/editions.h"
#include "config/setting_loader.h"
#include "platform/registry/profile_file.h"

namespace config {
namespace {

constexpr std::size_t kMaxKeyLength = 260;
constexpr std::size_t kMinPolicyNameLength = 2;
constexpr std::size_t kIniTextCapacity = 100;
constexpr const char* kIniSection = "config";

// Reads one value of a policy out of the INI file.
struct IniReader {
  const Setting& setting;
  PolicyRecord& policy;

  std::uint32_t number() const {
    return platform::profileInt(kIniFile, kIniSection, setting.name,
                                static_cast<std::int32_t>(setting.number));
  }
  void operator()(std::uint32_t PolicyRecord::*field) const { policy.*field = number(); }
  void operator()(std::uint8_t PolicyRecord::*field) const { policy.*field = number() != 0; }
  void operator()(std::string PolicyRecord::*field) const {
    policy.*field =
        platform::profileString(kIniFile, kIniSection, setting.name, "", kIniTextCapacity);
  }
  template <typename Other>
  void operator()(const Other& /*field*/) const {}
};

void readFromIni(PolicyRecord& policy) {
  policy = PolicyRecord();
  policy.defined = 1;
  for (const Setting& setting : settingsTable()) {
    if ((setting.loaders & kPolicyFromIni) != 0) {
      std::visit(IniReader{setting, policy}, setting.field);
    }
  }
}

// Nothing of what the record held before is left: not a policy that was defined in another key.
void readFromRegistry(platform::Registry& registry, PolicyRecord& policy, const std::string& key) {
  policy = PolicyRecord();
  for (const SettingGroup group : {SettingGroup::Policy, SettingGroup::PolicyRules}) {
    loadSettingGroup(registry, key, group, kPolicyFromRegistry, policy);
  }
  if (policy.policyName.size() >= kMinPolicyNameLength) policy.defined = 1;
  policy.includeGroups = base::lowered(policy.includeGroups);
}

std::string policyKey(const std::string& root, const std::string& name) {
  return (root + '\\' + name).substr(0, kMaxKeyLength);
}

std::string keyOfPolicyOrEdition(const std::string& name) {
  for (const Edition& edition : editions()) {
    for (const char* code : {edition.policyCode, edition.oldPolicyCode}) {
      if (*code != '\0' && base::equalsNoCase(name, code)) return edition.key;
    }
  }
  return policyKey(kPolicyRootMpe, name);
}

}  // namespace

int initPolicy(PolicyRecord& policy) {
  policy = PolicyRecord();
  return 1;
}

int readPolicy(platform::Registry& registry, PolicyRecord& policy, const std::string& name,
               PolicyStore store) {
  if (store == PolicyStore::IniFile) {
    readFromIni(policy);
    return 1;
  }
  readFromRegistry(registry, policy, keyOfPolicyOrEdition(name));
  if (policy.includeGroups.find("domain users") != std::string::npos ||
      base::lowered(name) == "defaultpolicy") {
    policy.appliesToDomainUsers = 1;
  }
  return 1;
}

int initLivePolicy(PolicyRecord& policy) {
  constexpr std::uint32_t kLiveMinCharacters = 6;
  constexpr std::uint32_t kLiveMaxCharacters = 16;
  policy.defined = 1;
  policy.minCharacters = kLiveMinCharacters;
  policy.maxCharacters = kLiveMaxCharacters;
  policy.checkSpaces = 1;  // with both limits 0: no spaces allowed
  policy.minSpaces = 0;
  policy.maxSpaces = 0;
  policy.checkUsername = 1;
  return 1;
}

int readPolicyMpems(platform::Registry& registry, PolicyRecord& policy, const std::string& name) {
  readFromRegistry(registry, policy, policyKey(kPolicyRootMpems, name));
  return 1;
}

}  // namespace config
