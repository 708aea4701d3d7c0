// Look-ups in an INI file ("[section]" and "key=value" lines), with the rules of the profile
// functions of the Windows API: names without regard to case, the first match wins, blanks around a
// value and one pair of quotes around it are dropped.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace platform {

// The value's text, cut to `capacity` - 1 bytes; `fallback` when file, section or key is missing.
std::string profileString(const std::string& file, const std::string& section,
                          const std::string& key, const std::string& fallback,
                          std::size_t capacity);

// The value's leading decimal number, with an optional sign; 0 when it has none; `fallback` when
// the key is missing.
std::uint32_t profileInt(const std::string& file, const std::string& section,
                         const std::string& key, std::int32_t fallback);

}  // namespace platform
