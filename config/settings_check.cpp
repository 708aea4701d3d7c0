#include "config/settings_check.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "base/ascii.h"
#include "base/nearest_name.h"
#include "base/timestamp.h"
#include "config/editions.h"
#include "config/registry_readers.h"
#include "config/settings_table.h"

namespace config {
namespace {

using platform::RegistryType;

bool isNumber(RegistryType type) {
  return type == RegistryType::Dword || type == RegistryType::DwordBigEndian ||
         type == RegistryType::Qword;
}

// "not a number (REG_DWORD)"; empty when there is no value, or one of the setting's type.
std::string typeFault(platform::Registry& registry, const std::string& key, const Setting& setting,
                      int index) {
  const std::optional<RegistryType> type = storedType(registry, key, settingName(setting, index));
  if (!type) return {};
  if (isText(setting.type)) return isNumber(*type) ? "not a text (REG_SZ)" : "";
  return *type == RegistryType::Dword ? "" : "not a number (REG_DWORD)";
}

// The rules of the filter and its switches do not matter to a pass; the directory's reader refuses
// what it cannot use.
bool countsForPass(const Setting& setting) {
  switch (setting.group) {
    case SettingGroup::Expiration:
    case SettingGroup::Policy:
    case SettingGroup::Product:
      return true;
    case SettingGroup::EditionRoot:
      return setting.name == std::string(kServiceDebugValue);
    case SettingGroup::PolicyRules:
    case SettingGroup::Directory:
    case SettingGroup::Service:
      break;
  }
  return false;
}

struct KnownValue {
  std::string name;
  const Setting* setting;
  int index;
};

std::vector<KnownValue> knownValues(const std::vector<SettingGroup>& groups) {
  std::vector<KnownValue> known;
  for (const Setting& setting : settingsTable()) {
    if (std::count(groups.begin(), groups.end(), setting.group) == 0) continue;
    for (int i = 0; i < setting.count; ++i) known.push_back({settingName(setting, i), &setting, i});
  }
  return known;
}

// A key that settings stand in, or below which they do.
struct Place {
  std::string key;
  std::vector<KnownValue> values;
  std::vector<std::string> subkeys;
  // Others keep values and keys there too: an unknown name is a mistake only when it is near to a
  // known one.
  bool shared = false;
};

std::vector<Place> placesOfSettings() {
  std::vector<std::string> policies;
  for (int slot = 0; slot < kNamedPolicies; ++slot) policies.push_back(policySlotName(slot));
  std::vector<Place> places = {
      {kPoliciesKey, {}, {}, true},
      {kProductKey, knownValues({SettingGroup::Product}), {"Directory"}, true},
      {kDirectoryKey, knownValues({SettingGroup::Directory}), {}, false},
      {kServiceParametersKey, knownValues({SettingGroup::Service}), {}, true},
  };
  for (const Edition& edition : editions()) {
    places[0].subkeys.push_back(std::string(edition.key).substr(std::strlen(kPoliciesKey) + 1));
  }
  for (const std::string root : {kPolicyRootMpe, kPolicyRootMpems}) {
    std::vector<std::string> subkeys = policies;
    subkeys.emplace_back(kExpirationSubkey);
    places.push_back({root, knownValues({SettingGroup::EditionRoot}), subkeys, false});
    places.push_back(
        {root + '\\' + kExpirationSubkey, knownValues({SettingGroup::Expiration}), {}, false});
  }
  const std::vector<KnownValue> ofPolicy =
      knownValues({SettingGroup::Policy, SettingGroup::PolicyRules});
  for (const std::string& key : settingKeys(SettingGroup::Policy)) {
    places.push_back({key, ofPolicy, {}, false});
  }
  return places;
}

// Most policies' keys are not there.
std::vector<std::string> presentKeys(platform::Registry& registry, SettingGroup group) {
  std::vector<std::string> keys = settingKeys(group);
  std::unique_ptr<platform::RegistryKey> open;
  std::erase_if(keys, [&](const std::string& key) {
    return registry.openKey(key, platform::RegistryAccess::Query, open) != platform::kErrorSuccess;
  });
  return keys;
}

using Kind = SettingMistake::Kind;
using Mistakes = std::vector<SettingMistake>;

// `mistake` says where.
void noteUnknown(SettingMistake mistake, const std::string& name,
                 const std::vector<std::string>& known, bool shared, Mistakes& notes) {
  mistake.nearest = base::nearestName(name, known);
  if (shared && mistake.nearest.empty()) return;
  mistake.fault = "is not known, and not read";
  notes.push_back(std::move(mistake));
}

void noteValue(platform::Registry& registry, const std::string& key, const KnownValue& value,
               Mistakes& notes) {
  const Setting& setting = *value.setting;
  const std::string fault = typeFault(registry, key, setting, value.index);
  if (!fault.empty()) {
    const bool refusedElsewhere =
        countsForPass(setting) || setting.group == SettingGroup::Directory;
    if (!refusedElsewhere) notes.push_back({Kind::WrongType, key, value.name, fault, ""});
    return;
  }
  if (isText(setting.type) || setting.limit == 0) return;
  const std::uint32_t number = readNumber(registry, key, value.name);
  if (number <= setting.limit) return;
  notes.push_back({Kind::TooLarge, key, value.name,
                   std::to_string(number) + " is more than " + std::to_string(setting.limit), ""});
}

// False, with the mistake's words, when a text is there that means nothing.
bool isUsable(const Setting& setting, const std::string& value, SettingMistake& mistake) {
  if (setting.type == SettingType::TimeOfDay) {
    mistake.fault = '"' + value + "\" is no time of day (HH:MM)";
    return value.empty() || base::secondOfDay(value);
  }
  std::vector<std::string> words;
  std::string list;
  for (std::string_view rest = setting.words; !rest.empty();) {
    const std::size_t end = std::min(rest.find(' '), rest.size());
    words.emplace_back(rest.substr(0, end));
    if (base::equalsNoCase(value, words.back())) return true;
    list += (list.empty() ? "" : ", ") + words.back();
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  mistake.fault = '"' + value + "\" is none of " + list;
  mistake.nearest = base::nearestName(value, words);
  return false;
}

}  // namespace

std::string SettingMistake::text() const {
  const std::string what =
      name.empty() ? "registry key " + key : "registry value \"" + name + "\" of " + key;
  return what + (kind == Kind::Unknown ? " " : ": ") + fault +
         (nearest.empty() ? "" : ": \"" + nearest + "\" may be meant");
}

std::vector<SettingMistake> findSettingNotes(platform::Registry& registry) {
  std::vector<SettingMistake> notes;
  static const std::vector<Place> places = placesOfSettings();
  for (const Place& place : places) {
    const platform::KeyNames names = registry.list(place.key);
    if (names.values.empty() && names.subkeys.empty()) continue;
    const std::vector<KnownValue>& known = place.values;
    for (const std::string& name : names.values) {
      const auto found = std::find_if(known.begin(), known.end(), [&](const KnownValue& value) {
        return base::equalsNoCase(value.name, name);
      });
      if (found != known.end()) {
        noteValue(registry, place.key, *found, notes);
      } else if (!name.empty()) {
        std::vector<std::string> knownNames;
        for (const KnownValue& value : known) knownNames.push_back(value.name);
        noteUnknown({Kind::Unknown, place.key, name, "", ""}, name, knownNames, place.shared,
                    notes);
      }
    }
    for (const std::string& name : names.subkeys) {
      const bool isKnown =
          std::any_of(place.subkeys.begin(), place.subkeys.end(),
                      [&](const std::string& subkey) { return base::equalsNoCase(subkey, name); });
      if (isKnown) continue;
      noteUnknown({Kind::Unknown, place.key + '\\' + name, "", "", ""}, name, place.subkeys,
                  place.shared, notes);
    }
  }
  return notes;
}

std::vector<SettingMistake> findUnusableValues(platform::Registry& registry) {
  std::vector<SettingMistake> found;
  for (const Setting& setting : settingsTable()) {
    if (setting.type != SettingType::TimeOfDay && setting.type != SettingType::Choice) continue;
    for (const std::string& key : settingKeys(setting.group)) {
      SettingMistake mistake{Kind::Unusable, key, setting.name, "", ""};
      if (!isUsable(setting, readSettingText(registry, key, setting), mistake)) {
        found.push_back(std::move(mistake));
      }
    }
  }
  return found;
}

std::vector<SettingMistake> findWrongTypes(platform::Registry& registry) {
  std::vector<SettingMistake> found;
  std::map<SettingGroup, std::vector<std::string>> keysOf;
  for (const Setting& setting : settingsTable()) {
    if (!countsForPass(setting)) continue;
    const auto [keys, isNew] = keysOf.try_emplace(setting.group);
    if (isNew) keys->second = presentKeys(registry, setting.group);
    for (const std::string& key : keys->second) {
      for (int i = 0; i < setting.count; ++i) {
        const std::string fault = typeFault(registry, key, setting, i);
        if (fault.empty()) continue;
        found.push_back({Kind::WrongType, key, settingName(setting, i), fault, ""});
      }
    }
  }
  return found;
}

}  // namespace config
