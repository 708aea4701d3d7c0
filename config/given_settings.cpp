#include "config/given_settings.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <utility>

#include "base/ascii.h"
#include "base/nearest_name.h"
#include "config/editions.h"
#include "config/settings_table.h"

namespace config {
namespace {

using platform::RegistryType;
using platform::RegistryValue;

struct GivenName {
  std::string name;
  const Setting* setting;
  std::vector<std::string> keys;
};

// A group's names stand behind that of their key where several keys hold the same ones.
std::vector<std::pair<std::string, std::vector<std::string>>> placesOf(SettingGroup group) {
  if (group == SettingGroup::Directory) return {{"Directory.", settingKeys(group)}};
  if (group != SettingGroup::Policy && group != SettingGroup::PolicyRules) {
    return {{"", settingKeys(group)}};
  }
  std::vector<std::pair<std::string, std::vector<std::string>>> places;
  for (int slot = 0; slot < kNamedPolicies; ++slot) {
    const std::string name = policySlotName(slot);
    std::vector<std::string> keys = settingKeys(group);
    std::erase_if(keys, [&name](const std::string& key) { return !key.ends_with('\\' + name); });
    places.emplace_back(name + '.', keys);
  }
  return places;
}

std::vector<GivenName> allNames() {
  std::vector<GivenName> names;
  for (const Setting& setting : settingsTable()) {
    for (const auto& [prefix, keys] : placesOf(setting.group)) {
      for (int i = 0; i < setting.count; ++i) {
        names.push_back({prefix + settingName(setting, i), &setting, keys});
      }
    }
  }
  return names;
}

bool isNumber(const std::string& text, std::int64_t& number) {
  const char* const end = text.data() + text.size();
  const auto [rest, fault] = std::from_chars(text.data(), end, number);
  return fault == std::errc() && rest == end;
}

RegistryValue textValue(const std::string& text) {
  return {RegistryType::String, text + '\0'};
}

RegistryValue numberValue(std::uint32_t number) {
  RegistryValue value{RegistryType::Dword, ""};
  for (int shift = 0; shift < 32; shift += 8) value.bytes += static_cast<char>(number >> shift);
  return value;
}

// Nothing, with `error`, when the text is no value of the setting.
std::optional<RegistryValue> valueOf(const Setting& setting, const std::string& text,
                                     std::string& error) {
  if (isText(setting.type)) {
    if (text.size() <= setting.limit) return textValue(text);
    error = "is longer than " + std::to_string(setting.limit) + " bytes";
    return std::nullopt;
  }
  std::int64_t number = 0;
  const bool isFlag = setting.type == SettingType::Flag;
  if (!isNumber(text, number)) {
    error = isFlag ? "takes 0 or 1" : "takes a whole number";
    return std::nullopt;
  }
  const bool isSigned = setting.type == SettingType::SignedNumber;
  const std::int64_t least = isSigned ? std::numeric_limits<std::int32_t>::min() : 0;
  const std::int64_t greatest = isFlag               ? 1
                                : setting.limit != 0 ? setting.limit
                                : isSigned           ? std::numeric_limits<std::int32_t>::max()
                                                     : std::numeric_limits<std::uint32_t>::max();
  if (number >= least && number <= greatest) {
    return numberValue(static_cast<std::uint32_t>(number));
  }
  error = "takes a number from " + std::to_string(least) + " to " + std::to_string(greatest);
  return std::nullopt;
}

}  // namespace

std::vector<std::string> givenSettingNames() {
  std::vector<std::string> names;
  for (GivenName& known : allNames()) names.push_back(std::move(known.name));
  return names;
}

bool readGivenSetting(const std::string& text, std::vector<platform::GivenValue>& values,
                      std::string& error) {
  const std::size_t equals = text.find('=');
  const std::string name(base::trimmed(text.substr(0, equals)));
  if (equals == std::string::npos || name.empty()) {
    error = "\"" + text + "\" is not NAME=VALUE";
    return false;
  }
  const std::vector<GivenName> known = allNames();
  const auto found = std::find_if(known.begin(), known.end(), [&name](const GivenName& candidate) {
    return base::equalsNoCase(candidate.name, name);
  });
  if (found == known.end()) {
    const std::string nearest = base::nearestName(name, givenSettingNames());
    error = "there is no setting \"" + name + "\"" +
            (nearest.empty() ? " (a policy's are named as Policy1.maxPasswordAge)"
                             : "; \"" + nearest + "\" may be meant");
    return false;
  }
  if (found->setting->name == std::string("smtpPassword")) {
    error = "smtpPassword is not taken from a command line, which other users can see";
    return false;
  }
  std::string fault;
  const std::optional<RegistryValue> value =
      valueOf(*found->setting, text.substr(equals + 1), fault);
  if (!value) {
    error = found->name + ' ' + fault;
    return false;
  }
  const std::string valueName = found->name.substr(found->name.find('.') + 1);
  for (const std::string& key : found->keys) {
    const bool memberServer =
        key.starts_with(std::string(kPolicyRootMpems) + '\\') || key == kPolicyRootMpems;
    values.push_back({key, valueName, *value, memberServer ? kExpirationKeyMpems : ""});
  }
  return true;
}

}  // namespace config
