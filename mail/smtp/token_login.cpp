#include "mail/smtp/token_login.h"

#include <algorithm>
#include <cstddef>

#include "base/ascii.h"
#include "base/text.h"
#include "mail/mime/base64.h"

namespace kelvado {
namespace {

constexpr char kSeparator = '\x01';
// A longer response waits for the server's empty challenge (RFC 4954 section 4): a command line has
// 512 octets with its CR LF (RFC 5321 section 4.5.3.1.4).
constexpr std::size_t kMaxCommandBytes = 510;
// Ends an exchange that is not understood (RFC 4954 section 4).
constexpr const char* kCancel = "*";

// A user name as part of a SASL header (RFC 5801 section 4).
std::string saslName(const std::string& name) {
  std::string out = name;
  base::replaceAll(out, "=", "=3D");
  base::replaceAll(out, ",", "=2C");
  return out;
}

// The answer to the server's error, which it waits for before it refuses the login: one separator
// (RFC 7628 section 3.2.3), in base64, or for XOAUTH2 an empty line.
std::string errorAnswer(TokenMechanism mechanism) {
  return mechanism == TokenMechanism::OAuthBearer ? base64Encode(std::string(1, kSeparator)) : "";
}

// The server's error, a JSON object, from the challenge behind "334 "; empty when it is none.
std::string decodedError(std::string_view reply) {
  reply.remove_prefix(std::min(reply.size(), std::string_view("334 ").size()));
  std::string text;
  if (!base64Decode(base::trimmed(reply), text)) return {};
  return text.starts_with('{') ? text : std::string();
}

// The reply that decides. A challenge is not logged as it came: it may repeat the token in base64.
bool readDecision(SmtpWire& wire, Call& call) {
  const bool accepted = wire.readReply(235, call, SmtpWire::ReplyLog::CodeOnly);
  if (!accepted && wire.replyCode() != 334) call.log.LogData("reply", wire.loggableReply());
  return accepted;
}

// Logs why, and lets the server end the exchange.
void hearRefusal(SmtpWire& wire, TokenMechanism mechanism, Call& call) {
  const std::string reason = decodedError(wire.replyText());
  if (reason.empty()) {
    call.log.LogError("The SMTP server's answer to the access token is not understood.");
  } else {
    call.log.LogError("The SMTP server does not accept the access token.");
    call.log.LogData("server_error", wire.loggableText(reason));
  }
  if (wire.sendCommand(reason.empty() ? kCancel : errorAnswer(mechanism), call)) {
    readDecision(wire, call);
  }
}

// In one command where that has room, else behind the empty challenge of the server.
bool sendResponse(SmtpWire& wire, const std::string& keyword, const std::string& response,
                  Call& call) {
  const std::string command = "AUTH " + keyword;
  if (command.size() + 1 + response.size() <= kMaxCommandBytes) {
    call.log.LogData("command", command);
    return wire.sendSecret(command + " " + response, call);
  }
  return wire.sendCommand(command, call) &&
         wire.readReply(334, call, SmtpWire::ReplyLog::CodeOnly) && wire.sendSecret(response, call);
}

}  // namespace

bool isAccessToken(std::string_view text) {
  constexpr std::string_view kAllowed =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~+/=";
  return !text.empty() && text.find_first_not_of(kAllowed) == std::string_view::npos;
}

std::string tokenResponse(TokenMechanism mechanism, const SmtpCredentials& credentials) {
  std::string response = mechanism == TokenMechanism::OAuthBearer
                             ? "n,a=" + saslName(*credentials.username) + ","
                             : "user=" + *credentials.username;
  response.append(1, kSeparator).append("auth=Bearer ").append(credentials.accessToken);
  return response.append(2, kSeparator);
}

AuthOutcome tokenLogin(SmtpWire& wire, const SmtpCredentials& credentials, TokenMechanism mechanism,
                       const std::string& keyword, Call& call) {
  const std::string response = base64Encode(tokenResponse(mechanism, credentials));
  if (!sendResponse(wire, keyword, response, call)) {
    call.log.LogError("Failed to send AUTH " + keyword);
    return AuthOutcome::Denied;
  }
  if (readDecision(wire, call)) return AuthOutcome::LoggedIn;
  if (wire.replyCode() == 334) hearRefusal(wire, mechanism, call);
  return AuthOutcome::Denied;
}

}  // namespace kelvado
