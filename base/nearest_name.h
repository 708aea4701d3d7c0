// What a misspelt name may stand for. Pure functions.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace base {

// How many characters must be put in, left out, replaced or swapped with the next one to make one
// name of the other; the case of ASCII letters does not count. `most` + 1 when it is more than
// that, found out early.
std::size_t nameDistance(std::string_view left, std::string_view right, std::size_t most);

// The nearest of the known names; empty when none is near: one mistake for each 4 characters, two
// at most.
std::string nearestName(std::string_view name, const std::vector<std::string>& known);

}  // namespace base
