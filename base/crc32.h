// The CRC-32 of ISO 3309 (polynomial 0xEDB88320, as in gzip), to notice records that were written
// in part.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace base {

// Of each byte alone.
inline constexpr auto kCrc32OfBytes = [] {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
    std::uint32_t crc = byte;
    for (int bit = 0; bit < 8; ++bit) crc = crc >> 1U ^ (0xEDB88320U & (0U - (crc & 1U)));
    table[byte] = crc;
  }
  return table;
}();

constexpr std::uint32_t crc32(std::string_view bytes) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const char c : bytes) {
    crc = crc >> 8U ^ kCrc32OfBytes[(crc ^ static_cast<unsigned char>(c)) & 0xFFU];
  }
  return ~crc;
}
static_assert(crc32("123456789") == 0xCBF43926);

}  // namespace base
