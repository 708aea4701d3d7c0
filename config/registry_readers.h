// The readers and writers of single registry values, each with its own default rule. They open the
// key, read or write one value and close the key; readers never create one. None reports an error.
// Key paths are below HKEY_LOCAL_MACHINE.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/registry/registry.h"

namespace config {

// What readOptionalNumber answers for a value that is not set.
inline constexpr std::uint32_t kNumberAbsent = 0xFFFFFFFF;

// A value that is longer than this fails to read.
inline constexpr std::size_t kMaxTextValueBytes = 8192;
// writeText refuses more (terminator not counted).
inline constexpr std::size_t kMaxWrittenTextBytes = 1024;

// The REG_DWORD value; 0 when key or value is missing, of another type or unreadable.
std::uint32_t readNumber(platform::Registry& registry, const std::string& key,
                         const std::string& value);
// readNumber as a flag: any non-zero number is true.
bool readFlag(platform::Registry& registry, const std::string& key, const std::string& value);
// `fallback` when the key cannot be opened or the value is missing or not a REG_DWORD; 0 when the
// second query, for the number itself, fails.
std::uint32_t readNumberWithDefault(platform::Registry& registry, const std::string& key,
                                    const std::string& value, std::uint32_t fallback);
// The type of the value of that name; nothing when there is none.
std::optional<platform::RegistryType> storedType(platform::Registry& registry,
                                                 const std::string& key, const std::string& value);
// kNumberAbsent when absent or unreadable.
std::uint32_t readOptionalNumber(platform::Registry& registry, const std::string& key,
                                 const std::string& value);
// The value's text up to its first NUL, whatever its type; true when it was read, else `text` is
// empty. The text is not cut here; a caller with a limit cuts it.
bool readText(platform::Registry& registry, const std::string& key, const std::string& value,
              std::string& text);
// readText cut to what a field of `capacity` bytes, terminator included, can hold. A UTF-8
// character is never split.
std::string readTextField(platform::Registry& registry, const std::string& key,
                          const std::string& value, std::size_t capacity);

// Both make the key when it is missing and answer whether the value was stored.
bool writeNumber(platform::Registry& registry, const std::string& key, const std::string& value,
                 std::uint32_t number);
bool writeText(platform::Registry& registry, const std::string& key, const std::string& value,
               const std::string& text);

}  // namespace config
