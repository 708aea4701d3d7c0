// Whether an edition is licensed. The settings loaders ask it, once for each candidate key.
#pragma once

#include <string>

#include "config/product_settings.h"
#include "platform/registry/registry.h"

namespace config {

class LicenceCheck {
 public:
  virtual ~LicenceCheck() = default;
  // When the edition whose settings are below `key` is licensed, fills the record's `regcode`,
  // `maintCode` and `evaluation`, sets `version` to `edition` and answers true. Otherwise the
  // record stays as it is.
  virtual bool check(platform::Registry& registry, const std::string& key,
                     const std::string& edition, ProductSettings& pSettings) = 0;
};

// An edition is licensed when its key holds a "regcode" that is not empty.
class RegcodeLicenceCheck : public LicenceCheck {
 public:
  bool check(platform::Registry& registry, const std::string& key, const std::string& edition,
             ProductSettings& pSettings) override;
};

}  // namespace config
