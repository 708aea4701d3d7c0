// SHA-1 (RFC 3174), of which Windows makes the identity of a service. Used by access_list only.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace platform {

std::array<std::uint8_t, 20> sha1(std::string_view bytes);

}  // namespace platform
