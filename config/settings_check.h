// Looks for mistakes in what an administrator wrote into the registry: values that a loader would
// silently take for their defaults. In words for the administrator, one line each.
#pragma once

#include <string>
#include <vector>

#include "platform/registry/registry.h"

namespace config {

// The values of either edition that a pass uses and that are of a wrong type. Where a number
// belongs, a loader takes anything else for 0.
std::vector<std::string> findWrongTypes(platform::Registry& registry);

// Texts that are not what they should be, and are not used: a time of day that is none.
std::vector<std::string> findUnusableValues(platform::Registry& registry);

// What may be a mistake though a pass can be made: names of keys and values that are not known,
// with the nearest one that is; numbers beyond the limit of their setting; values of a wrong type
// that matter to the password filter only.
std::vector<std::string> findSettingNotes(platform::Registry& registry);

}  // namespace config
