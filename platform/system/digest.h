// The digest that mail authentication needs, by the system's cryptographic library.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace platform {

// RFC 1321.
std::array<std::uint8_t, 16> md5(std::string_view bytes);

}  // namespace platform
