#include "mail/smtp/smtp_auth.h"

#include <array>
#include <cstdint>

#include "base/ascii.h"
#include "base/hex_digit.h"
#include "mail/mime/base64.h"
#include "mail/smtp/ntlm_login.h"
#include "platform/system/digest.h"

namespace kelvado {
namespace {

// Users of this provider log in with LOGIN even though its servers do not list it.
constexpr const char* kUnlistedLoginDomain = "login-provider.example";

constexpr std::size_t kHmacBlock = 64;  // RFC 2104, for MD5
constexpr auto kCodeOnly = SmtpWire::ReplyLog::CodeOnly;

struct ForcedMethod {
  const char* name;
  unsigned method;
};

constexpr ForcedMethod kForcedMethods[] = {
    {"LOGIN", kAuthLogin}, {"PLAIN", kAuthPlain}, {"CRAM-MD5", kAuthCramMd5},
    {"NTLM", kAuthNtlm},   {"NONE", kNoMethod},   {"MSN", kAuthMsn},
};

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

bool haveCredentials(const SmtpCredentials& credentials, Call& call) {
  if (credentials.complete()) return true;
  call.log.LogError("Username and/or password is empty");
  return false;
}

// Each exchange below logs its own steps; its caller adds the line that names the method.
bool authLogin(SmtpWire& wire, const SmtpCredentials& credentials, Call& call) {
  if (!haveCredentials(credentials, call)) return false;
  if (!wire.sendCommand("AUTH LOGIN", call)) {
    call.log.LogError("Failed to send AUTH LOGIN");
    return false;
  }
  if (!wire.readReply(334, call, kCodeOnly)) return false;
  if (!wire.sendSecret(base64Encode(*credentials.username), call)) {
    call.log.LogError("Failed to send login name");
    return false;
  }
  if (!wire.readReply(334, call, kCodeOnly)) {
    call.log.LogError("Failed to get response to login name");
    call.log.LogError("Check your username/password or your SMTP server's auth settings");
    return false;
  }
  if (!wire.sendSecret(base64Encode(*credentials.password), call)) {
    call.log.LogError("Failed to send login password");
    return false;
  }
  if (!wire.readReply(235, call, kCodeOnly)) {
    call.log.LogError("Failed to get response to login password");
    return false;
  }
  return true;
}

bool authPlain(SmtpWire& wire, const SmtpCredentials& credentials, Call& call) {
  if (!haveCredentials(credentials, call)) return false;
  // The authorisation identity is always the user name.
  std::string identity = *credentials.username;
  identity.append(1, '\0').append(*credentials.username).append(1, '\0');
  identity += *credentials.password;
  call.log.LogData("command", "AUTH PLAIN");
  if (!wire.sendSecret("AUTH PLAIN " + base64Encode(identity), call)) {
    call.log.LogError("Failed to send AUTH LOGIN");  // the same words as for LOGIN, on purpose
    return false;
  }
  return wire.readReply(235, call, kCodeOnly);
}

bool authCramMd5(SmtpWire& wire, const SmtpCredentials& credentials, Call& call) {
  if (!haveCredentials(credentials, call)) return false;
  if (!wire.sendCommand("AUTH CRAM-MD5", call)) return false;
  if (!wire.readReply(334, call, kCodeOnly)) return false;
  std::string_view challenge = wire.replyText();
  challenge.remove_prefix(std::string_view("334 ").size());
  std::string decoded;
  base64Decode(challenge, decoded);
  const std::string answer = cramMd5Answer(*credentials.username, *credentials.password, decoded);
  if (!wire.sendSecret(base64Encode(answer), call)) {
    call.log.LogError("Failed to send CRAM-MD5 response");
    return false;
  }
  if (!wire.readReply(235, call, kCodeOnly)) {
    call.log.LogError("Failed to get successful CRAM-MD5 response");
    call.log.LogError("Check your username/password or your SMTP server's auth settings");
    return false;
  }
  return true;
}

// A server must not get the password itself by refusing the method that was to keep it secret:
// where NTLM was forced, LOGIN follows it only under TLS.
bool mayFallBack(const SmtpWire& wire, const SmtpCredentials& credentials) {
  return wire.isSecure() || applyForcedMethod(credentials.method, kNoMethod) == kNoMethod;
}

bool authByNtlm(const char* command, const char* failure, SmtpWire& wire,
                const SmtpCredentials& credentials, Call& call) {
  if (!haveCredentials(credentials, call)) return false;
  const NtlmOutcome outcome = ntlmLogin(wire, credentials, command, call);
  if (outcome == NtlmOutcome::LoggedIn) return true;
  call.log.LogError(failure);
  if (outcome == NtlmOutcome::Denied || !mayFallBack(wire, credentials)) return false;
  call.log.LogData("alt_login_method", "LOGIN");
  return authLogin(wire, credentials, call);
}

bool authNtlm(SmtpWire& wire, const SmtpCredentials& credentials, Call& call) {
  return authByNtlm("AUTH NTLM", "NTLM authentication failed", wire, credentials, call);
}

bool authMsn(SmtpWire& wire, const SmtpCredentials& credentials, Call& call) {
  return authByNtlm("AUTH MSN", "MSN authentication failed", wire, credentials, call);
}

struct Exchange {
  unsigned method;
  const char* logName;  // under "login_method"
  const char* failure;
  bool (*run)(SmtpWire&, const SmtpCredentials&, Call&);
};

// In order of preference.
constexpr Exchange kExchanges[] = {
    {kAuthLogin, "LOGIN", "Failed to login using LOGIN method", authLogin},
    {kAuthNtlm, "NTLM", "Failed to login using NTLM method", authNtlm},
    {kAuthMsn, "MSN", "Failed to login using MSN method", authMsn},
    {kAuthCramMd5, "CRAM_MD5", "Failed to login using CRAM-MD5 method", authCramMd5},
    {kAuthPlain, "PLAIN", "Failed to login using PLAIN method", authPlain},
};

struct UnsupportedMethod {
  unsigned method;
  const char* logName;
  const char* message;
};

constexpr UnsupportedMethod kUnsupportedMethods[] = {
    {kAuthDigestMd5, "DIGEST-MD5", "DIGEST-MD5 login method not supported"},
    {kAuthGssapi, "GSSAPI", "GSSAPI login method not supported"},
    {kAuthKerberosV4, "Kerberos-V4", "Kerberos v4 login method not supported"},
    {kAuthAnonymous, "anonymous", "Anonymous login method not supported"},
};

bool runExchange(const Exchange& exchange, SmtpWire& wire, const SmtpCredentials& credentials,
                 Call& call) {
  call.log.LogData("login_method", exchange.logName);
  if (exchange.run(wire, credentials, call)) return true;
  call.log.LogError(exchange.failure);
  return false;
}

bool refuseUnsupported(unsigned methods, Call& call) {
  for (const UnsupportedMethod& row : kUnsupportedMethods) {
    if ((methods & row.method) == 0) continue;
    call.log.LogData("login_method", row.logName);
    call.log.LogError(row.message);
    return false;
  }
  call.log.LogData("login_method", "NONE or already authenticated");
  return true;
}

}  // namespace

unsigned applyForcedMethod(const std::string& forced, unsigned listed) {
  for (const ForcedMethod& row : kForcedMethods) {
    if (base::equalsNoCase(forced, row.name)) return row.method;
  }
  return listed;
}

std::string cramMd5Answer(std::string_view username, std::string_view password,
                          std::string_view challenge) {
  constexpr unsigned char kInnerFiller = 0x36;
  constexpr unsigned char kOuterFiller = 0x5C;
  const std::string inner = digestOf(hmacPad(password, kInnerFiller).append(challenge));
  const std::string digest = digestOf(hmacPad(password, kOuterFiller).append(inner));
  return std::string(username).append(" ").append(lowerHex(digest));
}

bool authenticate(SmtpWire& wire, const SmtpCredentials& credentials, unsigned listedMethods,
                  Call& call) {
  if (!credentials.complete()) {
    call.log.LogData("login_method", "NONE");
    return true;
  }
  wire.keepSecret(*credentials.password);
  unsigned methods = applyForcedMethod(credentials.method, listedMethods);
  if ((methods & (kAuthLogin | kAuthNtlm | kAuthMsn | kAuthCramMd5)) == 0) {
    call.log.LogInfo("This SMTP server did not list authentication methods.");
    if (base::containsNoCase(*credentials.username, kUnlistedLoginDomain)) {
      call.log.LogInfo("Defaulting to LOGIN authentication method.");
      methods |= kAuthLogin;
    }
  }
  for (const Exchange& exchange : kExchanges) {
    if (methods & exchange.method) return runExchange(exchange, wire, credentials, call);
  }
  return refuseUnsupported(methods, call);
}

bool authenticateAfterHelo(SmtpWire& wire, const SmtpCredentials& credentials, Call& call) {
  if (!credentials.complete()) {
    call.log.LogData("login_method", "NONE");
    return true;
  }
  wire.keepSecret(*credentials.password);
  const unsigned forced = applyForcedMethod(credentials.method, kAuthLogin);
  if (forced == kNoMethod) return true;
  const unsigned wanted = forced == kAuthPlain ? kAuthPlain : kAuthLogin;
  for (const Exchange& exchange : kExchanges) {
    if (exchange.method == wanted) return runExchange(exchange, wire, credentials, call);
  }
  return false;
}

}  // namespace kelvado
