#include "config/settings_check.h"

#include <optional>

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
  if (setting.type == SettingType::Text) return isNumber(*type) ? "not a text (REG_SZ)" : "";
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
      break;
  }
  return false;
}

}  // namespace

std::vector<std::string> findWrongTypes(platform::Registry& registry) {
  std::vector<std::string> found;
  for (const Setting& setting : settingsTable()) {
    if (!countsForPass(setting)) continue;
    for (const std::string& key : settingKeys(setting.group)) {
      for (int i = 0; i < setting.count; ++i) {
        const std::string fault = typeFault(registry, key, setting, i);
        if (fault.empty()) continue;
        found.push_back("registry value \"" + settingName(setting, i) + "\" of " + key + ": " +
                        fault);
      }
    }
  }
  return found;
}

}  // namespace config
