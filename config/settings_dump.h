// The plain-text dump of the product settings, for diagnosis. The service itself never writes one.
#pragma once

#include <string>

#include "config/product_settings.h"

namespace config {

// Every dumped field, one a line, below a heading.
std::string settingsDump(const ProductSettings& pSettings);

// Writes the dump into a file, made anew. Returns 1, also when it cannot be written.
int dumpSettings(const ProductSettings& pSettings, const std::string& file);

}  // namespace config
