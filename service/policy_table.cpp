#include "service/policy_table.h"

#include "base/format_text.h"
#include "config/policy_store.h"

namespace service {
namespace {

constexpr int kMemberServerPolicies = 3;
constexpr std::uint32_t kAgeBeyondAll = 10000;  // days; the search for the smallest age starts here

}  // namespace

std::string slotLabel(int slot) {
  if (slot < kFirstLengthPolicy) return policySlotName(slot);
  return base::formatText("Length%i", slot - kFirstLengthPolicy + 1);
}

PolicyTable loadPolicyTable(platform::Registry& registry,
                            const config::ExpirationSettings& settings, bool memberServer,
                            config::DebugLog& log) {
  PolicyTable slots;
  for (config::PolicyRecord& slot : slots) config::initPolicy(slot);
  for (int i = 0; i < kNamedPolicies; ++i) {
    config::readPolicy(registry, slots[i], policySlotName(i), config::PolicyStore::Registry);
  }
  if (memberServer) {
    for (int i = 0; i < kMemberServerPolicies; ++i) {
      config::readPolicyMpems(registry, slots[i], policySlotName(i));
    }
    slots[0].appliesToDomainUsers = 0;
  }
  if (settings.emailAgingUsers) {
    for (int i = kFirstLengthPolicy; i < kPolicySlots; ++i) slots[i].emailWarnings = 1;
    log.print("   Email enabled for length based policies.\n");
  }
  for (int n = 0; n < config::kLengthPolicies; ++n) {
    const config::LengthPolicy& policy = settings.lengthPolicies[n];
    if (policy.minLength > 0) slots[kFirstLengthPolicy + n].maxPasswordAge = policy.maxAge;
  }
  return slots;
}

std::array<int, kPolicySlots> policyOrder(const PolicyTable& slots) {
  std::array<int, kPolicySlots> order{};
  std::array<bool, kPolicySlots> selected{};
  for (int& position : order) {
    int best = 0;
    std::uint32_t bestAge = kAgeBeyondAll;
    for (int slot = 0; slot < kPolicySlots; ++slot) {
      const std::uint32_t age = slots[slot].maxPasswordAge;
      if (!selected[slot] && age <= bestAge) {
        best = slot;
        bestAge = age;
      }
    }
    selected[best] = true;
    position = best;
  }
  return order;
}

std::int32_t effectiveMaxAge(const PolicyTable& slots, int slot) {
  if (slot < kNamedPolicies && !slots[slot].defined) return 0;
  return static_cast<std::int32_t>(slots[slot].maxPasswordAge);
}

}  // namespace service
