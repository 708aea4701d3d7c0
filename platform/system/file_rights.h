// Who a file or folder belongs to and what may be done with it: for a check, which tries nothing.
#pragma once

#include <string>

namespace platform {

// The user that it belongs to, in the ANSI code page; empty where the system has no single owner of
// that kind, or does not say.
std::string fileOwner(const std::string& name);
// Whether this program could write to the file, or make files in the folder.
bool mayWrite(const std::string& name);
// Whether the owner of `folder` could write to the file; true where owners do not matter.
bool folderOwnerMayWrite(const std::string& folder, const std::string& name);

}  // namespace platform
