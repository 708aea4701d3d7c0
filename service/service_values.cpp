#include "service/service_values.h"

#include "config/expiration_settings.h"
#include "config/registry_readers.h"

namespace service {
namespace {

constexpr std::uint32_t kDefaultIntervalHours = 24;
constexpr std::uint32_t kMsPerHour = 3600000;

}  // namespace

ServiceValues readServiceValues(platform::Registry& registry) {
  ServiceValues values;
  values.debug = config::readFlag(registry, config::kPolicyRootMpe, "expirationServiceDebug") ||
                 config::readFlag(registry, config::kPolicyRootMpems, "expirationServiceDebug");
  std::uint32_t hours =
      config::readNumber(registry, config::kExpirationKeyMpe, "expirationServiceInterval");
  if (hours == 0) hours = kDefaultIntervalHours;
  values.intervalMs = hours * kMsPerHour;
  return values;
}

}  // namespace service
