// What the values of a directory's attributes become in an entry of a snapshot, whichever source
// they come from. Used by the LDIF and the LDAP source. Pure; takes any bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/directory/directory_snapshot.h"

namespace platform {

// Puts one value into its field. Null, or what is wrong with a value that cannot be; the entry is
// then not to be used. Of several values of a text, the first that is not empty counts.
using EntrySetter = const char* (*)(DirectoryEntry& entry, std::string_view value);

// By the attribute's name in any letter case: sAMAccountName, mail, givenName, sn, pwdLastSet,
// userAccountControl, nTSecurityDescriptor, objectCategory. Null for any other.
EntrySetter entrySetter(std::string_view attribute);

// A decimal number with nothing around it but blanks behind it.
std::optional<std::int64_t> decimalValue(std::string_view value);

// UTF-8. A value that is not is what older tools wrote in their code page, as in the list files.
std::string textValue(std::string_view value);

// The domain's part of a distinguished name: from its first "DC=" on; empty when there is none.
std::string_view domainPart(std::string_view dn);

}  // namespace platform
