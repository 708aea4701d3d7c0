// What the directory knows about one user.
#pragma once

#include <cstddef>
#include <string>

namespace directory {

// ANSI texts hold at most 255 bytes; a UTF-8 character is never split.
struct UserDirectoryData {
  std::string email = "none";  // "none": no address known
  std::string firstName;
  std::string lastName;
  std::string domain;  // DNS name; only after DomainDirectory::readDetails(true), as the following
  std::string displayName{};
  std::string preferredLanguage{};
  std::u16string manager{};       // distinguished name; empty: the user has none
  std::string managerName{};      // empty: not known
  std::string managerLanguage{};  // likewise; the manager's preferredLanguage
  std::string managerEmail{};     // likewise
};

inline constexpr const char* kNoEmail = "none";
inline constexpr std::size_t kDirectoryTextCapacity = 256;

}  // namespace directory
