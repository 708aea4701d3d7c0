// The fifteen policy slots of a pass: how they are loaded and in which order they are visited.
// Used by the expiration run only.
#pragma once

#include <array>

#include "config/debug_log.h"
#include "config/editions.h"
#include "config/expiration_settings.h"
#include "config/policy_record.h"
#include "platform/registry/registry.h"

namespace service {

// Slot 0 is the default policy, 1 to 5 the numbered ones, 6 to 10 stay empty, 11 to 14 are the
// length-based ones.
inline constexpr int kPolicySlots = 15;
using config::kNamedPolicies;
using config::policySlotName;
inline constexpr int kFirstLengthPolicy = 11;

using PolicyTable = std::array<config::PolicyRecord, kPolicySlots>;

// "DefaultPolicy", "Policy1" .. "Policy5" of slots 0 to 5, "Length1" .. "Length4" of slots 11
// to 14.
std::string slotLabel(int slot);

// Resets and loads all slots. `memberServer`: the member-server edition's keys win for slots 0
// to 2.
PolicyTable loadPolicyTable(platform::Registry& registry,
                            const config::ExpirationSettings& settings, bool memberServer,
                            config::DebugLog& log);

// Slot numbers in visiting order: rising maximum age. Among equal ages the highest-numbered slot
// comes first, so a numbered policy takes its users before the default policy does. Slots whose age
// is above 10,000 days are not found any more; slot 0 stands in their places.
std::array<int, kPolicySlots> policyOrder(const PolicyTable& slots);

// The maximum age that a pass uses, in days: 0, which skips the slot, for a named policy that is
// not defined, whatever its key holds.
std::int32_t effectiveMaxAge(const PolicyTable& slots, int slot);

}  // namespace service
