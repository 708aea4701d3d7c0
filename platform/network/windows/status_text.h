// The status numbers of security packages and certificate checks, in words for the log.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

// The number's name as the system's headers have it, and the number.
std::string statusText(std::uint32_t status);

}  // namespace platform
