// Which edition's keys a pass reads: those of the multi-policy domain controller edition, or on a
// member server those of its own edition, when that is set up there.
#pragma once

#include <memory>
#include <string>

#include "platform/registry/registry.h"

namespace service {

struct EditionKeys {
  bool memberServer = false;
  std::string settingsKey;                              // of the expiration settings
  std::unique_ptr<platform::RegistryKey> settingsOpen;  // that key, on a member server; else null
};

EditionKeys findEditionKeys(platform::Registry& registry);

}  // namespace service
