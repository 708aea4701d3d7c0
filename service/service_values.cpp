#include "service/service_values.h"

#include <algorithm>

#include "config/editions.h"
#include "config/expiration_settings.h"
#include "config/registry_readers.h"
#include "config/settings_table.h"

namespace service {
namespace {

constexpr std::size_t kMaxFolderBytes = 1024;  // with its end
constexpr std::uint32_t kMsPerHour = 3600000;
constexpr std::uint64_t kLongestMs = 0xFFFFFFFE;  // 49 days; one more means for ever

}  // namespace

ServiceValues readServiceValues(platform::Registry& registry) {
  ServiceValues values;
  values.debug = config::readFlag(registry, config::kPolicyRootMpe, config::kServiceDebugValue) ||
                 config::readFlag(registry, config::kPolicyRootMpems, config::kServiceDebugValue);
  // On a member server too.
  const std::uint32_t hours =
      config::loadExpirationSettings(registry, config::kExpirationKeyMpe).expirationServiceInterval;
  values.intervalMs = asMs(hours, kMsPerHour);
  values.workFolder = config::readTextField(registry, config::kServiceParametersKey,
                                            config::kWorkFolderValue, kMaxFolderBytes);
  return values;
}

std::uint32_t asMs(std::uint32_t count, std::uint32_t unitMs) {
  return static_cast<std::uint32_t>(std::min(std::uint64_t{count} * unitMs, kLongestMs));
}

}  // namespace service
