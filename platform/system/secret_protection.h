// What a system does for secrets in files. Used by stored_secret only.
#pragma once

#include <string>
#include <string_view>

namespace platform {

// Whether this system encrypts secrets; where not, the two calls below fail.
bool protectsSecrets();
// `bytes` for this machine only. False with the last error of the system in `error`.
bool protectBytes(std::string_view secret, std::string& bytes, std::string& error);
bool unprotectBytes(std::string_view bytes, std::string& secret, std::string& error);

// Before the secret is written: lets nobody but the service, the system and administrators read the
// file, which exists. Nothing to do where the rights of a new file are narrow enough.
bool restrictFile(const std::string& file, const std::string& service, std::string& error);

}  // namespace platform
