#include "config/expiration_settings.h"

#include "config/setting_loader.h"

namespace config {
namespace {

// With the settings of which there are several.
struct ExpirationLoader : SettingLoader<ExpirationSettings> {
  using SettingLoader<ExpirationSettings>::operator();

  void operator()(std::array<std::int32_t, kWarningDays> ExpirationSettings::*field) const {
    for (int i = 0; i < kWarningDays; ++i) {
      (record.*field)[i] = static_cast<std::int32_t>(number(i));
    }
  }
  void operator()(std::uint32_t LengthPolicy::*field) const {
    for (int i = 0; i < kLengthPolicies; ++i) record.lengthPolicies[i].*field = number(i);
  }
};

}  // namespace

ExpirationSettings loadExpirationSettings(platform::Registry& registry,
                                          const std::string& settingsKey) {
  ExpirationSettings settings;
  const std::string productKey = kProductKey;
  for (const Setting& setting : settingsTable()) {
    const bool ofProduct = setting.group == SettingGroup::Product;
    if (!ofProduct && setting.group != SettingGroup::Expiration) continue;
    const std::string& key = ofProduct ? productKey : settingsKey;
    std::visit(ExpirationLoader{{registry, key, setting, settings}}, setting.field);
  }
  return settings;
}

}  // namespace config
