// Why Windows refused a login, in words. Used by the connection to a directory server.
#pragma once

#include <string>
#include <string_view>

namespace platform {

// `diagnostic` is what a domain controller adds to a refused bind, such as "80090308: LdapErr:
// DSID-0C090447, comment: AcceptSecurityContext error, data 52e, v3839". Gives "wrong user name or
// password (52e)", and nothing when no number that is known stands there.
std::string loginRefusal(std::string_view diagnostic);

}  // namespace platform
