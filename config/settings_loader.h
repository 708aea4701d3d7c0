// Loads the product settings: from the registry, for the "live" edition, or from a store of choice.
// Loaders never fail: what is missing yields its default. All return 1.
#pragma once

#include <string>

#include "config/licence_check.h"
#include "config/policy_store.h"
#include "config/product_settings.h"
#include "platform/registry/registry.h"

namespace config {

// The standard loader: finds out the kind of machine and takes its edition's key.
int loadSettings(platform::Registry& registry, LicenceCheck& licences, ProductSettings& pSettings);

// The "live" edition. `dictionaryDebug`, `skipLength` and `logSkips` stay as they were.
int loadLiveSettings(platform::Registry& registry, LicenceCheck& licences,
                     ProductSettings& pSettings);

// From the INI file, or from the registry key given. Fields that the store does not have stay as
// they were.
int loadSettingsFrom(PolicyStore store, platform::Registry& registry, LicenceCheck& licences,
                     const std::string& keyPath, ProductSettings& pSettings);

}  // namespace config
