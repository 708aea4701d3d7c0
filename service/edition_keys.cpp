#include "service/edition_keys.h"

#include "config/editions.h"

namespace service {

EditionKeys findEditionKeys(platform::Registry& registry) {
  EditionKeys keys;
  keys.memberServer = registry.openKey(config::kExpirationKeyMpems, platform::RegistryAccess::Query,
                                       keys.settingsOpen) == platform::kErrorSuccess &&
                      config::machineKind(registry) == "ms";
  if (!keys.memberServer) keys.settingsOpen.reset();
  keys.settingsKey = keys.memberServer ? config::kExpirationKeyMpems : config::kExpirationKeyMpe;
  return keys;
}

}  // namespace service
