#include "mail/smtp/ntlm_login.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include "base/log_base.h"
#include "mail/mime/base64.h"
#include "mail/smtp/wire_text.h"
#include "platform/network/security_package.h"

namespace kelvado {
namespace {

using platform::SspiStatus;

constexpr auto kCodeOnly = SmtpWire::ReplyLog::CodeOnly;
constexpr int kGoOn = 334;
constexpr int kLoggedIn = 235;
constexpr int kDenied = 535;     // RFC 4954: credentials invalid
constexpr int kCancelled = 501;  // RFC 4954: the answer to "*"
// NTLM takes two tokens of the client; a server that asks for more and more is refused.
constexpr int kMaxTokens = 8;

struct StatusName {
  SspiStatus status;
  const char* name;
};

constexpr StatusName kStatusNames[] = {
    {platform::kSecUnknownCredentials, "SEC_E_UNKNOWN_CREDENTIALS"},
    {platform::kSecNoCredentials, "SEC_E_NO_CREDENTIALS"},
    {platform::kSecNotOwner, "SEC_E_NOT_OWNER"},
    {platform::kSecInsufficientMemory, "SEC_E_INSUFFICIENT_MEMORY"},
    {platform::kSecInternalError, "SEC_E_INTERNAL_ERROR"},
    {platform::kSecInvalidHandle, "SEC_E_INVALID_HANDLE"},
    {platform::kSecTargetUnknown, "SEC_E_TARGET_UNKNOWN"},
    {platform::kSecNoAuthenticatingAuthority, "SEC_E_NO_AUTHENTICATING_AUTHORITY"},
    {platform::kSecCompleteNeeded, "SEC_I_COMPLETE_NEEDED"},
    {platform::kSecCompleteAndContinue, "SEC_I_COMPLETE_AND_CONTINUE"},
    {platform::kSecLogonDenied, "LOGON_DENIED"},
    // The system has no NTLM: on Linux it is in a package of its own.
    {platform::kSecPackageNotFound, "SEC_E_SECPKG_NOT_FOUND"},
};

void logStatusName(SspiStatus status, base::LogBase& log) {
  for (const StatusName& row : kStatusNames) {
    if (row.status != status) continue;
    (status & 0x80000000U) != 0 ? log.LogError(row.name) : log.LogInfo(row.name);
  }
}

class NtlmExchange {
 public:
  NtlmExchange(SmtpWire& wire, Call& call) : wire_(wire), call_(call) {}

  AuthOutcome run(const SmtpCredentials& credentials) {
    if (!acquire(credentials) || !prepare({})) return cancel();
    for (int tokens = 0; tokens < kMaxTokens; ++tokens) {
      if (!wire_.readReply(kGoOn, call_, kCodeOnly)) {
        call_.log.LogError("exchangePackage: failed to get success response");
        return refused();
      }
      awaitsFirst334_ = false;
      // What comes with the first 334 is no token: some servers send a text there.
      if (tokens > 0 && !prepare(serverToken())) return cancel();
      if (finished_) return sendFinal();
      if (!wire_.sendSecret(base64Encode(token_), call_)) {
        call_.log.LogError("exchangePackage: failed to send package on socket");
        return AuthOutcome::Denied;
      }
    }
    call_.log.LogError("Finished and NOT authenticated");
    return AuthOutcome::Denied;
  }

 private:
  bool acquire(const SmtpCredentials& credentials) {
    const platform::NtlmCredentials given{
        credentials.username.value_or(""), credentials.password.value_or(""), credentials.domain,
        wire_.isSecure() ? wire_.peerCertificate().endPointBinding : ""};
    if (given.user.empty()) call_.log.LogInfo("Using default NTLM credentials.");
    SspiStatus status = platform::kSecOk;
    client_ = platform::createNtlmClient(given, wire_.host(), status);
    if (client_ != nullptr) return true;
    call_.log.LogError("Failed to acquire credentials handle");
    char number[16];
    std::snprintf(number, sizeof number, "0x%08X", static_cast<unsigned>(status));
    call_.log.LogData("status_code", number);
    logStatusName(status, call_.log);
    return false;
  }

  // The next token_, and whether it is the last.
  bool prepare(const std::string& in) {
    const SspiStatus status = client_->step(in, token_);
    logStatusName(status, call_.log);
    switch (status) {
      case platform::kSecOk:
      case platform::kSecCompleteNeeded:
        finished_ = true;
        return true;
      case platform::kSecContinueNeeded:
      case platform::kSecCompleteAndContinue:
        return true;
      default:
        call_.log.LogError("Finished and NOT authenticated");
        return false;
    }
  }

  std::string serverToken() const {
    const std::string_view text = wire_.replyText();
    std::string token;
    base64Decode(text.substr(std::min(text.size(), std::string_view("334 ").size())), token);
    return token;
  }

  AuthOutcome sendFinal() {
    if (!wire_.sendSecret(base64Encode(token_), call_)) {
      call_.log.LogError("sendFinal: failed to send package on socket");
      return AuthOutcome::Denied;
    }
    if (wire_.readReply(kLoggedIn, call_, kCodeOnly)) return AuthOutcome::LoggedIn;
    call_.log.LogError("Logon denied.  Check username, password, and domain");
    call_.log.LogData("response", wire_.loggableReply());
    return AuthOutcome::Denied;
  }

  AuthOutcome refused() const {
    const bool denied = wire_.replyCode() == kDenied || wire_.outOfStep();
    return denied ? AuthOutcome::Denied : AuthOutcome::NotPossible;
  }

  // Ends the exchange after a failure on this side: the server still waits for a token.
  AuthOutcome cancel() {
    if (awaitsFirst334_ && !wire_.readReply(kGoOn, call_, kCodeOnly)) return refused();
    const bool cancelled =
        wire_.sendCommand("*", call_) && wire_.readReply(kCancelled, call_, kCodeOnly);
    return cancelled ? AuthOutcome::NotPossible : AuthOutcome::Denied;
  }

  SmtpWire& wire_;
  Call& call_;
  std::unique_ptr<platform::NtlmClient> client_;
  std::string token_;
  bool finished_ = false;
  bool awaitsFirst334_ = true;  // the reply to the command has not been read
};

}  // namespace

AuthOutcome ntlmLogin(SmtpWire& wire, const SmtpCredentials& credentials,
                      const std::string& command, Call& call) {
  if (!wire.sendCommand(command, call)) {
    call.log.LogError("Failed to send " + command);
    return AuthOutcome::Denied;
  }
  return NtlmExchange(wire, call).run(credentials);
}

}  // namespace kelvado
