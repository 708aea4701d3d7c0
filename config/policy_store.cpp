// One table says which value fills which field of a policy, in the order in which they are read;
// the three loaders differ only in the key and in what they do around it.
#include "config/policy_store.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <variant>

#include "base/ascii.h"
#include "config/expiration_settings.h"
#include "config/registry_readers.h"
#include "platform/registry/profile_file.h"

namespace config {
namespace {

constexpr std::size_t kMaxKeyLength = 260;
constexpr std::size_t kMinPolicyNameLength = 2;
constexpr std::size_t kIniTextCapacity = 100;
constexpr std::size_t kPolicyNameCapacity = 256;
constexpr std::size_t kSpecialCharCapacity = 128;
constexpr std::size_t kGroupsCapacity = 1024;
constexpr const char* kIniSection = "config";

using Number = std::uint32_t PolicyRecord::*;
using Flag = std::uint8_t PolicyRecord::*;
struct Maximum {
  Number field;
};
struct Text {
  std::string PolicyRecord::*field;
  std::size_t capacity;
};

struct PolicyValue {
  const char* name;
  std::variant<Number, Maximum, Flag, Text> field;
  bool inIni = true;
};

using P = PolicyRecord;
constexpr bool kRegistryOnly = false;

const PolicyValue kPolicyValues[] = {
    {"minPasswordAge", &P::minPasswordAge, kRegistryOnly},
    {"maxPasswordAge", &P::maxPasswordAge, kRegistryOnly},
    {"emailWarnings", &P::emailWarnings, kRegistryOnly},
    {"maxCharacters", Maximum{&P::maxCharacters}},
    {"minCharacters", &P::minCharacters},
    {"minCharTypes", &P::minCharTypes},
    {"check3ConsecutiveCharTypes", &P::check3ConsecutiveCharTypes},
    {"minNumericChar", &P::minNumericChar},
    {"maxNumericChar", Maximum{&P::maxNumericChar}},
    {"minLowerChar", &P::minLowerChar},
    {"maxLowerChar", Maximum{&P::maxLowerChar}},
    {"minUpperChar", &P::minUpperChar},
    {"maxUpperChar", Maximum{&P::maxUpperChar}},
    {"minAlphaChar", &P::minAlphaChar},
    {"maxAlphaChar", Maximum{&P::maxAlphaChar}},
    {"minNonAlphaChar", &P::minNonAlphaChar},
    {"maxNonAlphaChar", Maximum{&P::maxNonAlphaChar}},
    {"minNonAlphaNumericChar", &P::minNonAlphaNumericChar},
    {"maxNonAlphaNumericChar", Maximum{&P::maxNonAlphaNumericChar}},
    {"allowedSpecialChar", Text{&P::allowedSpecialChar, kSpecialCharCapacity}},
    {"numericPosition", &P::numericPosition},
    {"specialPosition", &P::specialPosition},
    {"checkNumeric", &P::checkNumeric},
    {"checkUpper", &P::checkUpper},
    {"checkLower", &P::checkLower},
    {"checkAlpha", &P::checkAlpha},
    {"checkNonAlphaNumeric", &P::checkNonAlphaNumeric},
    {"checkNonAlpha", &P::checkNonAlpha},
    {"checkSimilar", &P::checkSimilar},
    {"maxSimilar", &P::maxSimilar},
    {"minDifferent", &P::minDifferent},
    {"checkSpaces", &P::checkSpaces},
    {"minSpaces", &P::minSpaces},
    {"maxSpaces", Maximum{&P::maxSpaces}},
    {"restrictSpecialChar", &P::restrictSpecialChar},
    {"checkVowels", &P::checkVowels},
    {"checkConsecutive", &P::checkConsecutive},
    {"check3Consecutive", &P::check3Consecutive},
    {"check3ConsecutiveAlpha", &P::check3ConsecutiveAlpha},
    {"noBeginNumeric", &P::noBeginNumeric},
    {"noEndNumeric", &P::noEndNumeric},
    {"noBeginSpecial", &P::noBeginSpecial},
    {"noEndSpecial", &P::noEndSpecial},
    {"checkAscii", &P::checkAscii},
    {"numericBetweenAlpha", &P::numericBetweenAlpha},
    {"checkDictionary", &P::checkDictionary},
    {"substringSearch", &P::substringSearch},
    {"checkUsername", &P::checkUsername},
    {"checkFullname", &P::checkFullname},
    {"specialBefore", &P::specialBefore},
    {"applyNonExpiring", &P::applyNonExpiring, kRegistryOnly},
    {"excludeNonExpiring", &P::excludeNonExpiring, kRegistryOnly},
    {"checkDictionarySubstitution", &P::checkDictionarySubstitution, kRegistryOnly},
    {"checkDictionaryWildcard", &P::checkDictionaryWildcard, kRegistryOnly},
    {"checkSAP", &P::checkSAP, kRegistryOnly},
    {"checkNameFragments", &P::checkNameFragments, kRegistryOnly},
    {"includeGroups", Text{&P::includeGroups, kGroupsCapacity}, kRegistryOnly},
    {"excludeGroups", Text{&P::excludeGroups, kGroupsCapacity}, kRegistryOnly},
};

// Reads one value of a policy out of the registry.
struct RegistryReader {
  platform::Registry& registry;
  const std::string& key;
  const char* name;
  PolicyRecord& policy;

  void operator()(Number field) const { policy.*field = readNumber(registry, key, name); }
  void operator()(Flag field) const { policy.*field = readFlag(registry, key, name) ? 1 : 0; }
  void operator()(const Maximum& maximum) const {
    const std::uint32_t number = readOptionalNumber(registry, key, name);
    if (number != kNumberAbsent) policy.*maximum.field = number;
  }
  void operator()(const Text& text) const {
    policy.*text.field = readTextField(registry, key, name, text.capacity);
  }
};

// Reads one value of a policy out of the INI file.
struct IniReader {
  const char* name;
  PolicyRecord& policy;

  std::uint32_t number(std::uint32_t fallback) const {
    return platform::profileInt(kIniFile, kIniSection, name, static_cast<std::int32_t>(fallback));
  }
  void operator()(Number field) const { policy.*field = number(0); }
  void operator()(Flag field) const { policy.*field = number(0) != 0 ? 1 : 0; }
  void operator()(const Maximum& maximum) const { policy.*maximum.field = number(kNoMaximum); }
  void operator()(const Text& text) const {
    policy.*text.field = platform::profileString(kIniFile, kIniSection, name, "", kIniTextCapacity);
  }
};

void readFromIni(PolicyRecord& policy) {
  policy.defined = 1;
  for (const PolicyValue& value : kPolicyValues) {
    if (value.inIni) std::visit(IniReader{value.name, policy}, value.field);
  }
}

void readFromRegistry(platform::Registry& registry, PolicyRecord& policy, const std::string& key) {
  policy.policyName = readTextField(registry, key, "policyName", kPolicyNameCapacity);
  if (policy.policyName.size() >= kMinPolicyNameLength) policy.defined = 1;
  for (const PolicyValue& value : kPolicyValues) {
    std::visit(RegistryReader{registry, key, value.name, policy}, value.field);
  }
  policy.includeGroups = base::lowered(policy.includeGroups);
}

std::string policyKey(const std::string& root, const std::string& name) {
  return (root + '\\' + name).substr(0, kMaxKeyLength);
}

struct EditionKey {
  const char* edition;  // lower case
  const char* key;
};

// The codes "PW-SPE-MS" and "PW-MPE-MS", which the INI settings use, are not among them: such a
// name is taken for a policy's, as it always was.
constexpr EditionKey kEditionKeys[] = {
    {"pw-spe", "Software\\Policies\\Kadro\\PwsentryPro"},
    {"nrv-spe", "Software\\Policies\\Kadro\\PwsentryPro"},
    {"pw-spems", "Software\\Policies\\Kadro\\PwsentryProSPEMS"},
    {"nrv-spems", "Software\\Policies\\Kadro\\PwsentryProSPEMS"},
    {"nrv-mpems", kPolicyRootMpems},
    {"pw-de", "Software\\Policies\\Kadro\\PwsentryProDE"},
    {"nrv-de", "Software\\Policies\\Kadro\\PwsentryProDE"},
    {"nrv-le", "Software\\Policies\\Kadro\\PwsentryProLE"},
};

std::string keyOfPolicyOrEdition(const std::string& name) {
  const std::string edition = base::lowered(name);
  const auto* row = std::find_if(std::begin(kEditionKeys), std::end(kEditionKeys),
                                 [&](const EditionKey& key) { return key.edition == edition; });
  return row != std::end(kEditionKeys) ? row->key : policyKey(kPolicyRootMpe, name);
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
