// What the directory knows about one user, and the globals of the user in hand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace directory {

// Texts are in the ANSI code page and hold at most 255 bytes; a UTF-8 character is never split.
struct UserDirectoryData {
  std::string email = "none";  // "none": no address known
  std::string firstName;
  std::string lastName;
  std::string domain;
};

inline constexpr const char* kNoEmail = "none";
inline constexpr std::size_t kDirectoryTextCapacity = 256;

// The user that a pass examines: reset for each, filled by the pass and the look-ups, read by the
// warning e-mail.
struct UserGlobals {
  std::string username;
  std::uint32_t passwordAge = 0;  // days
  UserDirectoryData data;
};

}  // namespace directory
