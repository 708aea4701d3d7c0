// The CRC-32 of ISO 3309 (polynomial 0xEDB88320, as in gzip), to notice records that were written
// in part.
#pragma once

#include <cstdint>
#include <string_view>

namespace base {

constexpr std::uint32_t crc32(std::string_view bytes) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const char c : bytes) {
    crc ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; ++bit) crc = crc >> 1U ^ (0xEDB88320U & (0U - (crc & 1U)));
  }
  return ~crc;
}
static_assert(crc32("123456789") == 0xCBF43926);

}  // namespace base
