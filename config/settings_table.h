// Every value that this product keeps in the registry, one row each. The loaders, the checks of
// what an administrator wrote and docs/settings.md use it: a new setting is one row here, and one
// field of the record that it is loaded into.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "config/expiration_settings.h"
#include "config/policy_record.h"
#include "config/product_settings.h"

namespace config {

// The key that a value stands in, and what reads it.
enum class SettingGroup {
  Expiration,   // the expiration settings key of either edition
  Policy,       // a policy's key: what a pass uses
  PolicyRules,  // a policy's key: the rules of the password filter
  EditionRoot,  // an edition's root: switches of service and filter
  Product,      // kProductKey
  Directory,    // kDirectoryKey
  Service,      // kServiceParametersKey
};

enum class SettingType {
  Text,
  TimeOfDay,       // a text, "HH:MM"
  Choice,          // a text, one of some words; letter case does not count
  Flag,            // a number; any but 0 means 1
  Number,          // 0 means the default
  SignedNumber,    // the same
  OptionalNumber,  // 0 is a value; the default when missing
};

// The field of the record that it is loaded into. Nothing: it is read where it is used. A numbered
// setting fills an array.
using SettingField = std::variant<std::monostate, std::string ExpirationSettings::*,
                                  bool ExpirationSettings::*, std::uint32_t ExpirationSettings::*,
                                  std::array<std::int32_t, kWarningDays> ExpirationSettings::*,
                                  std::uint32_t LengthPolicy::*, std::string PolicyRecord::*,
                                  std::uint8_t PolicyRecord::*, std::uint32_t PolicyRecord::*,
                                  bool ProductSettings::*, std::uint32_t ProductSettings::*>;

// Switches the debug log on; it stands in both editions' roots.
inline constexpr const char* kServiceDebugValue = "expirationServiceDebug";

// Which loaders read a value, where there are several for its group.
enum SettingLoaders : unsigned {
  kAllLoaders = ~0U,
  kPolicyFromRegistry = 1U << 0,
  kPolicyFromIni = 1U << 1,
  kStandardSwitches = 1U << 2,
  kLiveSwitches = 1U << 3,
  kChosenKeySwitches = 1U << 4,
};

// Whether values of that type are texts.
constexpr bool isText(SettingType type) {
  return type == SettingType::Text || type == SettingType::TimeOfDay || type == SettingType::Choice;
}

struct Setting {
  SettingGroup group;
  const char* name;  // of a numbered one without its number
  SettingType type;
  SettingField field;
  const char* text = "";     // default of a text
  std::uint32_t number = 0;  // default of a number
  // Bytes of a text that are kept; the greatest number that has a meaning. 0: any.
  std::uint32_t limit = 0;
  const char* unit = "";  // of a number
  const char* help = "";  // one line, in Markdown
  int count = 1;          // above 1: so many values, "NAME1" and on
  unsigned loaders = kAllLoaders;
  const char* words = "";  // of a choice, a blank between two
};

// In the order in which the values of a policy are read.
std::span<const Setting> settingsTable();

// "smtpServer"; of a numbered one "warning1" at index 0.
std::string settingName(const Setting& setting, int index);

// The keys that may hold a group's values.
std::vector<std::string> settingKeys(SettingGroup group);

// The value as its type and default say.
std::uint32_t readSettingNumber(platform::Registry& registry, const std::string& key,
                                const Setting& setting, int index = 0);
std::string readSettingText(platform::Registry& registry, const std::string& key,
                            const Setting& setting);

}  // namespace config
