// A password kept in the first line of a file. Used by the LDAP connection, just before it is
// needed.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace platform {

// Holds the bytes in one place, never copied, and wipes them at its end.
class SecretFile {
 public:
  SecretFile() = default;
  ~SecretFile();
  SecretFile(const SecretFile&) = delete;
  SecretFile& operator=(const SecretFile&) = delete;

  // False with `error` one line that names the file, when it cannot be read or its first line is
  // empty or too long for a password.
  bool read(const std::string& file, std::string& error);

  std::string_view text() const { return {bytes_.data(), size_}; }

 private:
  // Far more than a directory takes as a password.
  std::array<char, 1024> bytes_ = {};
  std::size_t size_ = 0;
};

}  // namespace platform
