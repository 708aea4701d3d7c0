// Looks an NTLM challenge over before the GSSAPI plug-in does: the plug-in trusts its caller to
// have one, and a mail server decides what it gets. Used by the NTLM client.
#pragma once

#include <string_view>

namespace platform {

// Whether the token is a CHALLENGE_MESSAGE whose every length and offset lies within it, which
// names its target if its flags say so, and whose list of attributes, if it has one, comes to an
// end. [MS-NLMP] 2.2.1.2, 2.2.2.1
bool isNtlmChallenge(std::string_view token);

}  // namespace platform
