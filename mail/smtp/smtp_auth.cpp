#include "mail/smtp/smtp_auth.h"

#include <array>
#include <cstdint>

#include "base/ascii.h"
#include "base/hex_digit.h"
#include "mail/mime/base64.h"
#include "mail/smtp/ntlm_login.h"
#include "mail/smtp/token_login.h"
#include "platform/system/digest.h"

namespace kelvado {
namespace {

// Users of this provider log in with LOGIN even though its servers do not list it.
constexpr const char* kUnlistedLoginDomain = "login-provider.example";

constexpr std::size_t kHmacBlock = 64;  // RFC 2104, for MD5
constexpr auto kCodeOnly = SmtpWire::ReplyLog::CodeOnly;

// Each exchange logs its own steps; its caller adds the line that names the method.
struct AuthMethod;
using Exchange = AuthOutcome (*)(const AuthMethod&, SmtpWire&, const SmtpCredentials&, Call&);

// What keeps the secret on the line.
enum class Needs {
  Token,    // nothing but TLS, and without it the server does not get the access token
  Tls,      // nothing but TLS: the server gets the password itself
  Ntlm,     // the NTLM of the system; without it LOGIN may follow
  Nothing,  // the method: it answers a challenge
};

struct AuthMethod {
  const char* keyword;  // in the server's list, and of the command
  const char* setting;  // that forces it; null: none does
  const char* logName;  // under "login_method"
  const char* failure;  // logged when it fails
  Needs needs;
  Exchange exchange;  // null: not implemented
};

std::string plainIdentity(const SmtpCredentials& credentials) {
  // The authorisation identity is always the user name.
  std::string identity = *credentials.username;
  identity.append(1, '\0').append(*credentials.username).append(1, '\0');
  return identity.append(*credentials.password);
}

std::string hmacPad(std::string_view key, unsigned char filler) {
  std::string pad(kHmacBlock, static_cast<char>(filler));
  for (std::size_t i = 0; i < key.size() && i < kHmacBlock; ++i) {
    pad[i] = static_cast<char>(pad[i] ^ key[i]);
  }
  return pad;
}

std::string digestOf(const std::string& bytes) {
  const std::array<std::uint8_t, 16> digest = platform::md5(bytes);
  return {digest.begin(), digest.end()};
}

std::string lowerHex(const std::string& bytes) {
  std::string hex;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    hex += base::kHexDigits[byte >> 4];
    hex += base::kHexDigits[byte & 15];
  }
  return base::lowered(hex);
}

AuthOutcome authLogin(const AuthMethod&, SmtpWire& wire, const SmtpCredentials& credentials,
                      Call& call) {
  if (!wire.sendCommand("AUTH LOGIN", call)) {
    call.log.LogError("Failed to send AUTH LOGIN");
    return AuthOutcome::Denied;
  }
  if (!wire.readReply(334, call, kCodeOnly)) return AuthOutcome::Denied;
  if (!wire.sendSecret(base64Encode(*credentials.username), call)) {
    call.log.LogError("Failed to send login name");
    return AuthOutcome::Denied;
  }
  if (!wire.readReply(334, call, kCodeOnly)) {
    call.log.LogError("Failed to get response to login name");
    call.log.LogError("Check your username/password or your SMTP server's auth settings");
    return AuthOutcome::Denied;
  }
  if (!wire.sendSecret(base64Encode(*credentials.password), call)) {
    call.log.LogError("Failed to send login password");
    return AuthOutcome::Denied;
  }
  if (!wire.readReply(235, call, kCodeOnly)) {
    call.log.LogError("Failed to get response to login password");
    return AuthOutcome::Denied;
  }
  return AuthOutcome::LoggedIn;
}

AuthOutcome authPlain(const AuthMethod&, SmtpWire& wire, const SmtpCredentials& credentials,
                      Call& call) {
  call.log.LogData("command", "AUTH PLAIN");
  if (!wire.sendSecret("AUTH PLAIN " + base64Encode(plainIdentity(credentials)), call)) {
    call.log.LogError("Failed to send AUTH LOGIN");  // the same words as for LOGIN, on purpose
    return AuthOutcome::Denied;
  }
  return wire.readReply(235, call, kCodeOnly) ? AuthOutcome::LoggedIn : AuthOutcome::Denied;
}

AuthOutcome authCramMd5(const AuthMethod&, SmtpWire& wire, const SmtpCredentials& credentials,
                        Call& call) {
  if (!wire.sendCommand("AUTH CRAM-MD5", call)) return AuthOutcome::Denied;
  if (!wire.readReply(334, call, kCodeOnly)) return AuthOutcome::Denied;
  std::string_view challenge = wire.replyText();
  challenge.remove_prefix(std::string_view("334 ").size());
  std::string decoded;
  base64Decode(challenge, decoded);
  const std::string answer = cramMd5Answer(*credentials.username, *credentials.password, decoded);
  if (!wire.sendSecret(base64Encode(answer), call)) {
    call.log.LogError("Failed to send CRAM-MD5 response");
    return AuthOutcome::Denied;
  }
  if (!wire.readReply(235, call, kCodeOnly)) {
    call.log.LogError("Failed to get successful CRAM-MD5 response");
    call.log.LogError("Check your username/password or your SMTP server's auth settings");
    return AuthOutcome::Denied;
  }
  return AuthOutcome::LoggedIn;
}

// NTLM and MSN: the same exchange behind another command.
AuthOutcome authNtlm(const AuthMethod& method, SmtpWire& wire, const SmtpCredentials& credentials,
                     Call& call) {
  const std::string keyword = method.keyword;
  const AuthOutcome outcome = ntlmLogin(wire, credentials, "AUTH " + keyword, call);
  if (outcome != AuthOutcome::LoggedIn) call.log.LogError(keyword + " authentication failed");
  return outcome;
}

template <TokenMechanism mechanism>
AuthOutcome authToken(const AuthMethod& method, SmtpWire& wire, const SmtpCredentials& credentials,
                      Call& call) {
  return tokenLogin(wire, credentials, mechanism, method.keyword, call);
}

// In order of preference. A method is chosen only when there is what it needs, so without an access
// token the first two are never.
constexpr AuthMethod kMethods[] = {
    {"OAUTHBEARER", "OAUTHBEARER", "OAUTHBEARER", "Failed to login using OAUTHBEARER method",
     Needs::Token, authToken<TokenMechanism::OAuthBearer>},
    {"XOAUTH2", "XOAUTH2", "XOAUTH2", "Failed to login using XOAUTH2 method", Needs::Token,
     authToken<TokenMechanism::XOAuth2>},
    {"LOGIN", "LOGIN", "LOGIN", "Failed to login using LOGIN method", Needs::Tls, authLogin},
    {"NTLM", "NTLM", "NTLM", "Failed to login using NTLM method", Needs::Ntlm, authNtlm},
    {"MSN", "MSN", "MSN", "Failed to login using MSN method", Needs::Ntlm, authNtlm},
    {"CRAM-MD5", "CRAM-MD5", "CRAM_MD5", "Failed to login using CRAM-MD5 method", Needs::Nothing,
     authCramMd5},
    {"PLAIN", "PLAIN", "PLAIN", "Failed to login using PLAIN method", Needs::Tls, authPlain},
    {"DIGEST-MD5", nullptr, "DIGEST-MD5", "DIGEST-MD5 login method not supported", Needs::Nothing,
     nullptr},
    {"GSSAPI", nullptr, "GSSAPI", "GSSAPI login method not supported", Needs::Nothing, nullptr},
    {"KERBEROS_V4", nullptr, "Kerberos-V4", "Kerberos v4 login method not supported",
     Needs::Nothing, nullptr},
    {"ANONYMOUS", nullptr, "anonymous", "Anonymous login method not supported", Needs::Nothing,
     nullptr},
};
constexpr const AuthMethod& kLogin = kMethods[2];
constexpr const AuthMethod& kPlain = kMethods[6];
static_assert(std::string_view(kLogin.keyword) == "LOGIN");
static_assert(std::string_view(kPlain.keyword) == "PLAIN");
constexpr const char* kForceNone = "NONE";

bool isForcedToNone(const SmtpCredentials& credentials) {
  return base::equalsNoCase(credentials.method, kForceNone);
}

// Null when the setting forces none, or names one that does not exist.
const AuthMethod* forcedMethod(const SmtpCredentials& credentials) {
  for (const AuthMethod& method : kMethods) {
    if (method.setting != nullptr && base::equalsNoCase(credentials.method, method.setting)) {
      return &method;
    }
  }
  return nullptr;
}

bool suits(const AuthMethod& method, const SmtpCredentials& credentials) {
  return method.needs == Needs::Token ? credentials.hasToken() : credentials.hasPassword();
}

const AuthMethod* firstListed(std::string_view listed, const SmtpCredentials& credentials) {
  for (const AuthMethod& method : kMethods) {
    if (suits(method, credentials) &&
        base::containsNoCase(listed, std::string(" ") + method.keyword)) {
      return &method;
    }
  }
  return nullptr;
}

// A server must not get the password itself by refusing, or not knowing, the method that was forced
// to keep it secret: LOGIN takes its place only under TLS.
bool mayUseLoginInstead(const AuthMethod* forced, const SmtpWire& wire) {
  return forced == nullptr || forced->needs == Needs::Tls || wire.isSecure();
}

// `reason`: when it is not the server's reply, nor the connection.
LoginOutcome failed(const AuthMethod& method, SmtpWire& wire, Call& call,
                    const std::string& reason = {}) {
  if (reason.empty()) {
    wire.noteFailure(SmtpStep::Login);
  } else {
    wire.noteFailure(SmtpStep::Login, reason);
  }
  call.log.LogError(method.failure);
  return LoginOutcome::Failed;
}

LoginOutcome runExchange(const AuthMethod& method, SmtpWire& wire,
                         const SmtpCredentials& credentials, Call& call) {
  call.log.LogData("login_method", method.logName);
  const std::string name = method.logName;
  if (method.exchange == nullptr) {
    return failed(method, wire, call,
                  "the server offers only " + name + ", which is not supported");
  }
  if (!suits(method, credentials)) {
    const bool token = method.needs == Needs::Token;
    call.log.LogError(token ? "Username and/or access token is empty"
                            : "Username and/or password is empty");
    return failed(method, wire, call,
                  token ? "user name or access token is empty" : "user name or password is empty");
  }
  if (method.needs == Needs::Token && !wire.isSecure()) {
    call.log.LogError("An access token is sent under TLS only: set StartTLS or SmtpSsl.");
    return failed(method, wire, call, "an access token is sent under TLS only");
  }
  AuthOutcome outcome = method.exchange(method, wire, credentials, call);
  if (outcome == AuthOutcome::NotPossible && mayUseLoginInstead(forcedMethod(credentials), wire)) {
    call.log.LogData("alt_login_method", kLogin.logName);
    outcome = kLogin.exchange(kLogin, wire, credentials, call);
  }
  if (outcome == AuthOutcome::LoggedIn) return LoginOutcome::LoggedIn;
  const bool impossible = outcome == AuthOutcome::NotPossible;
  return failed(method, wire, call, impossible ? name + " cannot be used here" : "");
}

LoginOutcome goOnWithoutLogin(Call& call) {
  call.log.LogData("login_method", "NONE or already authenticated");
  return LoginOutcome::NotTried;
}

}  // namespace

void keepSecrets(SmtpWire& wire, const SmtpCredentials& credentials) {
  if (credentials.hasPassword()) {
    wire.keepSecret(*credentials.password);
    wire.keepSecret(base64Encode(*credentials.password));
    wire.keepSecret(base64Encode(plainIdentity(credentials)));
  }
  if (credentials.hasToken()) {
    wire.keepSecret(credentials.accessToken);
    wire.keepSecret(base64Encode(credentials.accessToken));
    for (const TokenMechanism mechanism : {TokenMechanism::OAuthBearer, TokenMechanism::XOAuth2}) {
      wire.keepSecret(base64Encode(tokenResponse(mechanism, credentials)));
    }
  }
}

std::string cramMd5Answer(std::string_view username, std::string_view password,
                          std::string_view challenge) {
  constexpr unsigned char kInnerFiller = 0x36;
  constexpr unsigned char kOuterFiller = 0x5C;
  const std::string inner = digestOf(hmacPad(password, kInnerFiller).append(challenge));
  const std::string digest = digestOf(hmacPad(password, kOuterFiller).append(inner));
  return std::string(username).append(" ").append(lowerHex(digest));
}

LoginOutcome authenticate(SmtpWire& wire, const SmtpCredentials& credentials,
                          std::string_view listed, Call& call) {
  if (!credentials.complete()) {
    call.log.LogData("login_method", "NONE");
    return LoginOutcome::NotTried;
  }
  const AuthMethod* method = forcedMethod(credentials);
  if (method == nullptr && !isForcedToNone(credentials)) method = firstListed(listed, credentials);
  if (method == nullptr && !isForcedToNone(credentials) && !credentials.hasPassword()) {
    call.log.LogError("The SMTP server lists no method that takes an access token.");
    wire.noteFailure(SmtpStep::Login, "the server lists no method that takes an access token");
    return LoginOutcome::Failed;
  }
  // PLAIN alone does not count as a list.
  if (method == nullptr || method >= &kPlain) {
    call.log.LogInfo("This SMTP server did not list authentication methods.");
    if (base::containsNoCase(*credentials.username, kUnlistedLoginDomain)) {
      call.log.LogInfo("Defaulting to LOGIN authentication method.");
      method = &kLogin;
    }
  }
  return method == nullptr ? goOnWithoutLogin(call) : runExchange(*method, wire, credentials, call);
}

LoginOutcome authenticateAfterHelo(SmtpWire& wire, const SmtpCredentials& credentials, Call& call) {
  if (!credentials.complete()) {
    call.log.LogData("login_method", "NONE");
    return LoginOutcome::NotTried;
  }
  if (isForcedToNone(credentials)) return goOnWithoutLogin(call);
  const AuthMethod* forced = forcedMethod(credentials);
  if (!credentials.hasPassword() || (forced != nullptr && forced->needs == Needs::Token)) {
    call.log.LogError("The server knows HELO only, and with that no access token.");
    wire.noteFailure(SmtpStep::Login, "the server knows HELO only, and with that no access token");
    return LoginOutcome::Failed;
  }
  if (!mayUseLoginInstead(forced, wire)) {
    call.log.LogData("login_method", forced->logName);
    call.log.LogError("The server knows HELO only, and LOGIN would show it the password.");
    return failed(*forced, wire, call, "the server knows HELO only, and no login that hides it");
  }
  return runExchange(forced == &kPlain ? kPlain : kLogin, wire, credentials, call);
}

}  // namespace kelvado
