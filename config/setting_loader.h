// Loads one row of the table of settings into the field of a record. Used by the loaders of the
// expiration settings, the policies and the product settings.
#pragma once

#include <string>

#include "config/settings_table.h"

namespace config {

// For std::visit over Setting::field; a field of another record is left alone.
template <typename Record>
struct SettingLoader {
  platform::Registry& registry;
  const std::string& key;
  const Setting& setting;
  Record& record;

  void operator()(std::string Record::*field) const {
    record.*field = readSettingText(registry, key, setting);
  }
  void operator()(bool Record::*field) const { record.*field = number() != 0; }
  void operator()(std::uint8_t Record::*field) const { record.*field = number() != 0 ? 1 : 0; }
  void operator()(std::uint32_t Record::*field) const { record.*field = number(); }
  template <typename Other>
  void operator()(const Other& /*field*/) const {}

  std::uint32_t number(int index = 0) const {
    return readSettingNumber(registry, key, setting, index);
  }
};

// Loads the rows of a group that one of `loaders` reads.
template <typename Record>
void loadSettingGroup(platform::Registry& registry, const std::string& key, SettingGroup group,
                      unsigned loaders, Record& record) {
  for (const Setting& setting : settingsTable()) {
    if (setting.group != group || (setting.loaders & loaders) == 0) continue;
    std::visit(SettingLoader<Record>{registry, key, setting, record}, setting.field);
  }
}

}  // namespace config
