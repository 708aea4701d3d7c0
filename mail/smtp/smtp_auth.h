// Logging in to an SMTP server (RFC 4954): which method, and the exchange of each. A method is one
// row of the table in smtp_auth.cpp and one function. Used by the SMTP session after its greeting.
// Passwords, access tokens, and what is sent to log in never reach the log.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "mail/smtp/smtp_wire.h"

namespace kelvado {

struct SmtpCredentials {
  std::optional<std::string> username;  // absent: never set; empty is logged otherwise
  std::optional<std::string> password;
  std::string domain;       // Windows domain, for NTLM and MSN
  std::string method;       // forced method in any letter case; empty or unknown: the server's list
  std::string accessToken;  // OAuth 2.0, in the place of the password; empty: none

  bool hasUsername() const { return username && !username->empty(); }
  bool hasPassword() const { return hasUsername() && password && !password->empty(); }
  bool hasToken() const { return hasUsername() && !accessToken.empty(); }
  bool complete() const { return hasPassword() || hasToken(); }
  bool operator==(const SmtpCredentials&) const = default;
};

// Of one exchange.
enum class AuthOutcome {
  LoggedIn,
  Denied,       // by the server, or the connection is lost: nothing else may be tried
  NotPossible,  // not done, and the server waits for another command
};

enum class LoginOutcome {
  LoggedIn,
  NotTried,  // nothing to log in with, or no method to do it by: the session goes on without
  Failed,    // logged
};

// Password and access token in the forms that a server may repeat: to be known to the wire before
// the first reply is read.
void keepSecrets(SmtpWire& wire, const SmtpCredentials& credentials);

// `listed`: the methods of the server's extension list, see SmtpExtensions::authMethods.
LoginOutcome authenticate(SmtpWire& wire, const SmtpCredentials& credentials,
                          std::string_view listed, Call& call);

// For a server that only knows HELO and lists nothing.
LoginOutcome authenticateAfterHelo(SmtpWire& wire, const SmtpCredentials& credentials, Call& call);

// The answer to a CRAM-MD5 challenge, before base64. Of a password of more than 64 bytes only the
// first 64 count: the key is cut, not hashed. That differs from RFC 2104 and is intended.
std::string cramMd5Answer(std::string_view username, std::string_view password,
                          std::string_view challenge);

}  // namespace kelvado
