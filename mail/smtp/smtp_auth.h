// Logging in to an SMTP server (RFC 4954): which method, and the exchange of each.
// Used by the SMTP session after its greeting. User names and passwords never reach the log.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "mail/smtp/smtp_wire.h"

namespace kelvado {

struct SmtpCredentials {
  std::optional<std::string> username;  // absent: never given, which the log tells from empty
  std::optional<std::string> password;
  std::string domain;  // Windows domain, for NTLM and MSN
  std::string method;  // forced method in any letter case; empty or unknown: the server's list

  bool complete() const { return username && !username->empty() && password && !password->empty(); }
  bool operator==(const SmtpCredentials&) const = default;
};

// The methods to choose from once a forced one has had its say. kNoMethod forces none at all.
inline constexpr unsigned kNoMethod = 0;
unsigned applyForcedMethod(const std::string& forced, unsigned listed);

// The answer to a CRAM-MD5 challenge, before base64. Of a password of more than 64 bytes only the
// first 64 count: the key is cut, not hashed, which differs from RFC 2104 and is meant.
std::string cramMd5Answer(std::string_view username, std::string_view password,
                          std::string_view challenge);

// True when logged in, or when there was nothing to log in with.
bool authenticate(SmtpWire& wire, const SmtpCredentials& credentials, unsigned listedMethods,
                  Call& call);

// For a server that only knows HELO and lists nothing.
bool authenticateAfterHelo(SmtpWire& wire, const SmtpCredentials& credentials, Call& call);

}  // namespace kelvado
