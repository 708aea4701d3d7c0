// Numbers out of binary records in which every length and offset is untrusted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace base {

// The little-endian number of `size` bytes (at most 4), or nothing when it would reach past the
// end.
inline std::optional<std::uint32_t> littleEndian(std::string_view bytes, std::size_t offset,
                                                 std::size_t size) {
  if (offset > bytes.size() || bytes.size() - offset < size) return std::nullopt;
  std::uint32_t value = 0;
  for (std::size_t i = size; i-- > 0;) {
    value = value << 8U | static_cast<unsigned char>(bytes[offset + i]);
  }
  return value;
}

}  // namespace base
