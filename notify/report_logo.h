// The logo of the run report, built into the program. Written to a file at the start of a pass,
// from where the report page shows it and the report mail embeds it.
#pragma once

#include <string_view>

namespace notify {

// The bytes of a GIF89a image; they live as long as the program.
std::string_view reportLogo();

}  // namespace notify
