#include "service/edition_keys.h"

#include <cstddef>

#include "base/ascii.h"
#include "config/expiration_settings.h"
#include "config/registry_readers.h"

namespace service {
namespace {

constexpr std::size_t kProductTypeCapacity = 100;
constexpr const char* kProductOptionsKey = "System\\CurrentControlSet\\Control\\ProductOptions";
constexpr const char* kMemberServer = "ServerNT";

}  // namespace

EditionKeys findEditionKeys(platform::Registry& registry) {
  const std::string productType =
      config::readTextField(registry, kProductOptionsKey, "productType", kProductTypeCapacity);
  EditionKeys keys;
  keys.memberServer = registry.openKey(config::kExpirationKeyMpems, platform::RegistryAccess::Query,
                                       keys.settingsOpen) == platform::kErrorSuccess &&
                      base::equalsNoCase(productType, kMemberServer);
  if (!keys.memberServer) keys.settingsOpen.reset();
  keys.settingsKey = keys.memberServer ? config::kExpirationKeyMpems : config::kExpirationKeyMpe;
  return keys;
}

}  // namespace service
