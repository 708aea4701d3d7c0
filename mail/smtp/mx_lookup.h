// The mail exchangers of a domain (RFC 5321 section 5.1). Used by KvMailMan's look-ups; sending
// goes to the configured server without one.
#pragma once

#include <string>
#include <vector>

#include "base/log_base.h"
#include "platform/network/dns.h"

namespace kelvado {

// The domain behind the '@' of an address; a text without '@' is a domain already. False, logged,
// when the text is no address.
bool domainOf(const std::string& emailOrDomain, std::string& domain, base::LogBase& log);

// By rising preference, hosts of equal preference in the order of the answer. Empty, logged, when
// there are none; also when the domain says that it takes no mail (RFC 7505).
std::vector<platform::MxRecord> lookupMx(platform::Dns& dns, const std::string& domain,
                                         base::LogBase& log);

}  // namespace kelvado
