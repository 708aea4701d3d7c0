// Reads from a security descriptor whether its account may change its own password.
// Pure; takes any bytes.
#pragma once

#include <optional>
#include <string_view>

namespace platform {

// True when the DACL of this self-relative descriptor (the value of nTSecurityDescriptor) holds an
// object entry that denies the change-password right to SELF (S-1-5-10) or Everyone (S-1-1-0).
// Nothing when the descriptor is malformed before such an entry is found.
std::optional<bool> deniesPasswordChange(std::string_view descriptor);

}  // namespace platform
