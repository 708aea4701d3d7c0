// This system has nothing that keeps a secret from other programs of the same user; the file's mode
// keeps it from other users.
#include "platform/system/secret_protection.h"

namespace platform {

bool protectsSecrets() {
  return false;
}

bool protectBytes(std::string_view, std::string&, std::string&) {
  return false;
}

bool unprotectBytes(std::string_view, std::string&, std::string&) {
  return false;
}

bool restrictFile(const std::string&, const std::string&, std::string&) {
  return true;
}

}  // namespace platform
