// The system's random source.
#pragma once

#include <cstdint>

namespace platform {

std::uint32_t random32();

}  // namespace platform
