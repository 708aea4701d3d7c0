// A secret in the first line of a file. Where the system can protect it (DPAPI on Windows), the
// line holds "pwlapse-protected:" and digits in its place: whoever copies the file cannot use it on
// another machine. On this machine the rights of the file keep it from other users.
#pragma once

#include <string>
#include <string_view>

namespace platform {

// Reads the line, without blanks around it, protected or not. False with `error`, one line without
// the secret, when the file cannot be read, or there is nothing in the line that can be used.
bool readStoredSecret(const std::string& file, std::string& secret, std::string& error);

// Writes or replaces the file. Those who may read it are the service of that name, the system and
// administrators; where services have no identity of their own, the owner of the file, and of a
// file that is replaced its group. False with `error` one line.
bool storeSecret(const std::string& file, std::string_view secret, const std::string& service,
                 std::string& error);

}  // namespace platform
