// The NTLM exchange of AUTH NTLM and AUTH MSN, which differ in nothing but the command. The tokens
// are the system's (platform/network/security_package.h). Used by smtp_auth.cpp.
#pragma once

#include <string>

#include "mail/smtp/smtp_auth.h"
#include "mail/smtp/smtp_wire.h"

namespace kelvado {

// `command`: "AUTH NTLM" or "AUTH MSN".
AuthOutcome ntlmLogin(SmtpWire& wire, const SmtpCredentials& credentials,
                      const std::string& command, Call& call);

}  // namespace kelvado
