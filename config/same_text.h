// Comparing the fixed words of settings and command lines without regard to case.
#pragma once

#include <string_view>

namespace config {

// ASCII letters only; no locale has a say.
bool sameText(std::string_view text, std::string_view other);

}  // namespace config
