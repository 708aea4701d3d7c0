// What the directory knows about one user.
#pragma once

#include <cstddef>
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

}  // namespace directory
