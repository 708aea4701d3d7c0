#include "service/edition_keys.h"

#include <cstddef>

#include "config/expiration_settings.h"
#include "config/registry_readers.h"
#include "platform/case_fold.h"

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
                      platform::equalAsciiNoCase(productType, kMemberServer);
  if (!keys.memberServer) keys.settingsOpen.reset();
  keys.settingsKey = keys.memberServer ? config::kExpirationKeyMpems : config::kExpirationKeyMpe;
  return keys;
}

}  // namespace service
