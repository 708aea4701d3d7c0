// The NTLM exchange of AUTH NTLM and AUTH MSN, which differ in nothing but the command. The tokens
// are the system's (platform/network/security_package.h). Used by smtp_auth.cpp.
#pragma once

#include <string>

#include "mail/smtp/smtp_auth.h"
#include "mail/smtp/smtp_wire.h"

namespace kelvado {

enum class NtlmOutcome {
  LoggedIn,
  Denied,       // by the server, or the connection is lost: nothing else may be tried
  NotPossible,  // NTLM could not be done, and the server waits for another command
};

NtlmOutcome ntlmLogin(SmtpWire& wire, const SmtpCredentials& credentials, const char* command,
                      Call& call);

}  // namespace kelvado
