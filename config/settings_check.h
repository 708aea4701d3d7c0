// Looks for mistakes in what an administrator wrote into the registry: values that a loader would
// silently take for their defaults. In words for the administrator, one line each.
#pragma once

#include <string>
#include <vector>

#include "platform/registry/registry.h"

namespace config {

// The values of either edition that a pass goes by and that are of a wrong type. Where a number
// belongs, a loader takes anything else for 0.
std::vector<std::string> findWrongTypes(platform::Registry& registry);

}  // namespace config
