// `pwlapse policies`: every policy slot as a pass would load it, in the order in which it would
// visit them.
#include <cstdio>
#include <memory>

#include "base/format_text.h"
#include "config/expiration_settings.h"
#include "config/policy_printout.h"
#include "console/commands.h"
#include "platform/host/system_host.h"
#include "service/edition_keys.h"
#include "service/policy_table.h"

namespace console {
namespace {

std::string slotName(int slot) {
  if (slot < service::kNamedPolicies) return service::policySlotName(slot);
  if (slot < service::kFirstLengthPolicy) return "not in use";
  return base::formatText("length-based policy %i", slot - service::kFirstLengthPolicy + 1);
}

std::string slotHeading(const service::PolicyTable& slots, int slot) {
  const config::PolicyRecord& policy = slots[static_cast<std::size_t>(slot)];
  std::string text = base::formatText("Slot %i: %s", slot, slotName(slot).c_str());
  if (slot < service::kNamedPolicies && policy.defined == 0) text += ", not defined";
  const std::int32_t maxAge = service::effectiveMaxAge(slots, slot);
  if (maxAge == 0) return text + ", skipped\n";
  text += policy.useDirectoryPolicy == 1
              ? base::formatText(", maximum ages of the directory, in the place of %i days", maxAge)
              : base::formatText(", maximum age %i days", maxAge);
  text += policy.emailWarnings == 1 ? ", users are warned" : ", users are not warned";
  if (policy.appliesToDomainUsers == 1) text += ", all domain users";
  return text + '\n';
}

}  // namespace

int policiesCommand(const PoliciesOptions& options) {
  std::string error;
  const std::unique_ptr<platform::SystemHost> system =
      platform::makeSystemHost({options.registryFile, {}}, error);
  if (!system) return refuse(error);
  platform::Registry& registry = system->host().registry;
  const service::EditionKeys keys = service::findEditionKeys(registry);
  config::DebugLog silent = config::DebugLog::nowhere();
  const service::PolicyTable slots =
      service::loadPolicyTable(registry, config::loadExpirationSettings(registry, keys.settingsKey),
                               keys.memberServer, silent);

  std::printf("Registry: %s\nSettings: HKEY_LOCAL_MACHINE\\%s\n",
              registryName(options.registryFile).c_str(), keys.settingsKey.c_str());
  for (const int slot : service::policyOrder(slots)) {
    const config::PolicyRecord& policy = slots[static_cast<std::size_t>(slot)];
    std::printf("\n%s", slotHeading(slots, slot).c_str());
    const std::string text =
        options.shortForm ? config::policyTextShort(policy) : config::policyText(policy);
    std::fputs(text.c_str(), stdout);
  }
  return kExitDone;
}

}  // namespace console
