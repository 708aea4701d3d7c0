// What the parts of a check share; see checks.h.
#include "check/checks.h"
#include "config/editions.h"
#include "platform/text/text_lines.h"
#include "service/edition_keys.h"

namespace check {

Site loadSite(platform::Host host) {
  const service::EditionKeys edition = service::findEditionKeys(host.registry);
  Site site{host, config::loadExpirationSettings(host.registry, edition.settingsKey),
            edition.settingsKey, edition.memberServer};
  config::DebugLog silent = config::DebugLog::nowhere();
  site.slots = service::loadPolicyTable(host.registry, site.settings, edition.memberServer, silent);
  return site;
}

std::string policyKey(const Site& site, int slot) {
  constexpr int kMemberServerPolicies = 3;
  const bool own = site.memberServer && slot < kMemberServerPolicies;
  return std::string(own ? config::kPolicyRootMpems : config::kPolicyRootMpe) + '\\' +
         service::policySlotName(slot);
}

std::string valueName(const Site& site, const std::string& key, const std::string& value) {
  const std::string place = site.host.registry.placeOf(key, value);
  const std::string file = place.substr(place.find_last_of("/\\") + 1);
  const std::string name = key.substr(key.rfind('\\') + 1) + '\\' + value;
  return platform::loggableAnsiLine(file.empty() ? name : file + ' ' + name);
}

bool looksLikeAddress(const std::string& text) {
  const std::size_t at = text.find('@');
  return at != std::string::npos && at > 0 && at + 1 < text.size() &&
         text.find('@', at + 1) == std::string::npos &&
         text.find_first_of(" \t,;<>\"") == std::string::npos;
}

bool looksLikeHost(const std::string& text) {
  return text.find_first_of("/:@, ") == std::string::npos;
}

}  // namespace check
