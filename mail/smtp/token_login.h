// Logging in with an OAuth 2.0 access token in the place of a password: OAUTHBEARER (RFC 7628), and
// XOAUTH2, which is older and still what some servers list alone. Used by smtp_auth.cpp.
#pragma once

#include <string>
#include <string_view>

#include "mail/smtp/smtp_auth.h"
#include "mail/smtp/smtp_wire.h"

namespace kelvado {

enum class TokenMechanism { OAuthBearer, XOAuth2 };

// Whether the text can be an access token: the characters of RFC 6750 section 2.1, at least one.
bool isAccessToken(std::string_view text);

// What the client sends to log in, before base64. Needs user name and token.
std::string tokenResponse(TokenMechanism mechanism, const SmtpCredentials& credentials);

// `keyword`: of the AUTH command. The connection has to be secure. The server's reason for a
// refusal goes into the log, the token does not.
AuthOutcome tokenLogin(SmtpWire& wire, const SmtpCredentials& credentials, TokenMechanism mechanism,
                       const std::string& keyword, Call& call);

}  // namespace kelvado
