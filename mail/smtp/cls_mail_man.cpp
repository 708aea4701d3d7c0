#include "mail/smtp/cls_mail_man.h"

#include "base/text.h"
#include "mail/mime/email_address.h"
#include "mail/smtp/mx_lookup.h"
#include "mail/smtp/wire_text.h"
#include "platform/system/files.h"

namespace kelvado {
namespace {

constexpr int kImplicitTlsPort = 465;
// A text that begins with this line would end there, and the rest of it would be commands.
constexpr std::string_view kLoneDot = ".";
constexpr const char* kNotConnected = "There is no open SMTP connection.";

std::vector<std::string> plainAddresses(const std::string& list) {
  std::vector<std::string> addresses;
  for (const EmailAddress& entry : parseAddressList(list)) addresses.push_back(entry.address);
  return addresses;
}

struct MonitorHolder {
  ProgressMonitor monitor;
};

// The Call of one public method, with the monitor that it refers to.
struct MethodCall : private MonitorHolder, Call {
  MethodCall(const MailManSettings& settings, base::LogBase& methodLog)
      : MonitorHolder{ProgressMonitor(settings.progress, settings.heartbeatMs)},
        Call{methodLog, monitor} {}
};

bool isUsableMime(std::string_view mime) {
  return !mime.empty() && mime.substr(0, mime.find_first_of("\r\n")) != kLoneDot;
}

// Without one the mail would leave as if it were a bounce, and without a From field.
bool hasSender(const Email2& message, base::LogBase& log) {
  if (message.hasSender()) return true;
  log.LogError("The email has no sender: From holds no address with an '@'.");
  return false;
}

}  // namespace

bool ClsMailMan::unlockComponent(std::string_view code) {
  const MethodBracket bracket(*this, "UnlockComponent");
  unlocked_ = !code.empty();
  return unlocked_ || bracket.fail("The unlock code is empty.");
}

bool ClsMailMan::checkUnlocked(base::LogBase& log) {
  if (unlocked_) return true;
  session_.noteFailure("the mail component is locked");
  log.LogError("The mail component is locked: call UnlockComponent first.");
  return false;
}

// Changes the settings themselves, not a copy of them.
void ClsMailMan::resolveTlsConflict() {
  SmtpServer& server = settings_.server;
  if (!server.ssl || !server.startTls) return;
  (server.port == kImplicitTlsPort ? server.startTls : server.ssl) = false;
}

bool ClsMailMan::begin(base::LogBase& log) {
  session_.clearOutcome();
  resolveTlsConflict();
  return checkUnlocked(log);
}

bool ClsMailMan::beginSend(base::LogBase& log) {
  counters_ = {};
  session_.clearBadAddresses();
  return begin(log);
}

bool ClsMailMan::ensureMessage(ClsEmail* email, base::LogBase& log) const {
  if (email == nullptr) {
    log.LogError("Email parameter is NULL in SendEmail");
    return false;
  }
  email->createMessageIfMissing(log);
  if (email->message() == nullptr) log.LogError("Internal email is NULL");
  return email->message() != nullptr;
}

std::unique_ptr<Email2> ClsMailMan::prepareForSending(const ClsEmail& email,
                                                      base::LogBase& log) const {
  std::unique_ptr<Email2> copy = email.cloneForSending(log);
  if (copy == nullptr) {
    if (email.hasReplacePatterns()) log.LogError("Failed to clone with replacements.");
    return nullptr;
  }
  copy->removeHeaderField("Return-Path");
  copy->moveBlindCopiesToBcc();
  copy->normaliseTransferEncodings();
  return copy;
}

// Opens or reuses the connection, and returns the copy to send over it; null, logged, on failure.
std::unique_ptr<Email2> ClsMailMan::openAndPrepare(ClsEmail* email, Call& call) {
  base::LogBase& log = call.log;
  session_.noteFailure("the mail could not be prepared, or was aborted");  // until it is
  if (!ensureMessage(email, log)) return nullptr;
  if (!hasSender(*email->message(), log)) {
    session_.noteFailure("the sender's address has no '@'");
    return nullptr;
  }
  call.progress.expect(email->message()->sizeEstimate() * 3 / 2 + 200);
  if (call.abortRequested()) {
    log.LogError("Mail sending aborted by application");
    return nullptr;
  }
  if (!session_.prepareToSend(settings_.server, call)) return nullptr;
  if (call.progress.abortCheck()) {
    log.LogError("Mail send aborted by application.");
    return nullptr;
  }
  std::unique_ptr<Email2> copy = prepareForSending(*email, log);
  if (call.progress.abortCheck()) {
    log.LogError("Mail send aborted by application..");  // the second full stop marks this place
    return nullptr;
  }
  if (copy == nullptr) log.LogError("Failed to prepare email for sending. (3)");
  return copy;
}

bool ClsMailMan::reportOutcome(bool sent, Call& call) {
  base::LogBase& log = call.log;
  const auto& [accepted, total] = counters_;
  if (sent) {
    session_.clearFailure();
    log.LogData("NumAccepted", std::to_string(accepted));
    log.LogData("NumRejected", std::to_string(total - accepted));
    call.progress.finish();
    return true;
  }
  if (!session_.wasConnected()) return false;
  if (call.progress.aborted()) {
    log.LogError("Aborted by application");
  } else if (session_.timedOut()) {
    log.LogError("Timed out");
  } else if (accepted == 0 || accepted != total) {
    log.LogData("NumSuccess", std::to_string(accepted));
    log.LogData("NumTotal", std::to_string(total));
    log.LogError("Send failed.");
  } else {
    // Everybody was accepted and still it failed. The words do not fit; they are intended.
    log.LogError("Partial send failure.");
  }
  return false;
}

bool ClsMailMan::deliver(ClsEmail* email, base::LogBase& log) {
  MethodCall call(settings_, log);
  const std::unique_ptr<Email2> copy = openAndPrepare(email, call);
  if (copy == nullptr) return false;
  return reportOutcome(session_.sendEmail(*copy, settings_.send, call, counters_), call);
}

bool ClsMailMan::sendEmail(ClsEmail* email) {
  const MethodBracket bracket(*this, "SendEmail");
  return beginSend(bracket.log()) && deliver(email, bracket.log());
}

bool ClsMailMan::sendBundle(const std::vector<ClsEmail*>& bundle) {
  const MethodBracket bracket(*this, "SendBundle");
  base::LogBase& log = bracket.log();
  if (!beginSend(log)) return false;
  bool allSent = true;
  SendCounters sum;
  for (std::size_t i = 0; i < bundle.size(); ++i) {
    log.LogInfo("Sending message " + std::to_string(i + 1));
    counters_ = {};
    const bool sent = deliver(bundle[i], log);
    sum.accepted += counters_.accepted;
    sum.total += counters_.total;
    allSent = allSent && sent;
  }
  counters_ = sum;
  return allSent;
}

bool ClsMailMan::sendToDistributionList(ClsEmail* email,
                                        const std::vector<std::string>& addresses) {
  const MethodBracket bracket(*this, "SendToDistributionList");
  base::LogBase& log = bracket.log();
  if (!beginSend(log)) return false;
  if (addresses.empty()) return bracket.fail("The distribution list is empty.");
  MethodCall call(settings_, log);
  const std::unique_ptr<Email2> copy = openAndPrepare(email, call);
  if (copy == nullptr) return false;
  MessageText text(*copy);
  const bool sent =
      session_.sendToList(copy->reversePath(), addresses, text, settings_.send, call, counters_);
  return reportOutcome(sent, call);
}

bool ClsMailMan::quickSend(const std::string& from, const std::string& to,
                           const std::string& subject, const std::string& body,
                           const std::string& host) {
  const MethodBracket bracket(*this, "QuickSend");
  if (!beginSend(bracket.log())) return false;
  ClsEmail email;
  email.putFrom(from);
  email.putSubject(subject);
  email.putBody(body);
  if (!email.addMultiple("AddMultipleTo", RecipientKind::To, to)) {
    bracket.log().LogData("to", base::loggable(to));
    return bracket.fail("A recipient's address is not valid.");
  }
  settings_.server.host = host;
  return deliver(&email, bracket.log());
}

bool ClsMailMan::sendText(const std::string& from, const std::vector<std::string>& addresses,
                          std::string_view mime, base::LogBase& log) {
  if (!beginSend(log)) return false;
  if (!isSafeText(from)) {
    log.LogError("A value for the SMTP session holds characters that are not allowed.");
    log.LogData("reversePath", base::loggable(from));
    return false;
  }
  if (!isUsableMime(mime)) {
    log.LogError("The MIME text is empty or begins with a line of one dot.");
    return false;
  }
  MethodCall call(settings_, log);
  call.progress.expect(mime.size() * 3 / 2 + 200);
  if (!session_.prepareToSend(settings_.server, call)) return false;
  const Envelope envelope{parseAddress(from).address, addresses, {}, {}};
  MessageText text(mime);
  return reportOutcome(session_.sendMime(envelope, text, settings_.send, call, counters_), call);
}

bool ClsMailMan::sendMime(const std::string& from, const std::string& to, std::string_view mime) {
  const MethodBracket bracket(*this, "SendMime");
  return sendText(from, plainAddresses(to), mime, bracket.log());
}

bool ClsMailMan::sendMimeToList(const std::string& from, const std::vector<std::string>& addresses,
                                std::string_view mime) {
  const MethodBracket bracket(*this, "SendMimeToList");
  return sendText(from, addresses, mime, bracket.log());
}

std::optional<std::string> ClsMailMan::renderToMime(ClsEmail* email) {
  const MethodBracket bracket(*this, "RenderToMime");
  base::LogBase& log = bracket.log();
  if (!checkUnlocked(log) || !ensureMessage(email, log)) return std::nullopt;
  const std::unique_ptr<Email2> copy = prepareForSending(*email, log);
  if (copy == nullptr) return std::nullopt;
  std::string mime;
  copy->appendMime(mime);
  return mime;
}

// There is no queue service beside this library, so no queue directory is ever configured.
bool ClsMailMan::queueRefused(std::string_view method) {
  const MethodBracket bracket(*this, method);
  return bracket.fail("Kelvado smtpQ is not installed on this computer");
}

bool ClsMailMan::verifySmtpConnection() {
  const MethodBracket bracket(*this, "VerifySmtpConnection");
  base::LogBase& log = bracket.log();
  if (!begin(log)) return false;
  log.LogInfo("Checking TCP/IP connectivity to the SMTP server.");
  log.LogInfo("This does not check the login/password.");
  MethodCall call(settings_, log);
  return session_.connectAndGreet(settings_.server, call) ||
         bracket.fail("Failed to connect to SMTP server.");
}

bool ClsMailMan::verifySmtpLogin() {
  const MethodBracket bracket(*this, "VerifySmtpLogin");
  base::LogBase& log = bracket.log();
  if (!begin(log)) return false;
  const SmtpCredentials& credentials = settings_.server.credentials;
  if (credentials.username.value_or("").empty()) return bracket.fail("SMTP username is empty.");
  if (!credentials.complete()) return bracket.fail("SMTP password is empty.");
  MethodCall call(settings_, log);
  if (!session_.connectAndAuthenticate(settings_.server, call)) return false;
  if (session_.isLoggedIn()) return true;
  session_.noteFailure("the server offers no method to log in by");
  return bracket.fail("The SMTP server offered no method to log in by.");
}

bool ClsMailMan::verifyRecipients(ClsEmail* email) {
  const MethodBracket bracket(*this, "VerifyRecipients");
  base::LogBase& log = bracket.log();
  if (!beginSend(log)) return false;
  MethodCall call(settings_, log);
  const std::unique_ptr<Email2> copy = openAndPrepare(email, call);
  if (copy == nullptr) return false;
  const Envelope envelope{copy->reversePath(), copy->recipients(RecipientKind::To),
                          copy->recipients(RecipientKind::Cc),
                          copy->recipients(RecipientKind::Bcc)};
  return session_.verifyRecipients(envelope, call, counters_);
}

std::vector<std::string> ClsMailMan::badAddresses() {
  const MethodBracket bracket(*this, "GetBadEmailAddresses");
  return session_.badAddresses();
}

void ClsMailMan::clearBadAddresses() {
  const MethodBracket bracket(*this, "ClearBadEmailAddresses");
  session_.clearBadAddresses();
}

bool ClsMailMan::openSmtpConnection() {
  const MethodBracket bracket(*this, "OpenSmtpConnection");
  if (!begin(bracket.log())) return false;
  MethodCall call(settings_, bracket.log());
  return session_.reuseOrConnect(settings_.server, call);
}

bool ClsMailMan::closeSmtpConnection() {
  const MethodBracket bracket(*this, "CloseSmtpConnection");
  if (!session_.isOpen()) return bracket.fail(kNotConnected);
  MethodCall call(settings_, bracket.log());
  return session_.smtpQuit(call);
}

bool ClsMailMan::smtpReset() {
  const MethodBracket bracket(*this, "SmtpReset");
  if (!begin(bracket.log())) return false;
  if (!session_.isOpen()) return bracket.fail(kNotConnected);
  MethodCall call(settings_, bracket.log());
  return session_.smtpRset(call);
}

bool ClsMailMan::smtpNoop() {
  const MethodBracket bracket(*this, "SmtpNoop");
  if (!begin(bracket.log())) return false;
  if (!session_.isOpen()) return bracket.fail(kNotConnected);
  MethodCall call(settings_, bracket.log());
  return session_.smtpNoop(call);
}

bool ClsMailMan::isSmtpDsnCapable() {
  const MethodBracket bracket(*this, "IsSmtpDsnCapable");
  if (!begin(bracket.log())) return false;
  MethodCall call(settings_, bracket.log());
  return session_.reuseOrConnect(settings_.server, call) && session_.offersDsn();
}

bool ClsMailMan::setSslClientCert(const std::string& pemFile) {
  const MethodBracket bracket(*this, "SetSslClientCert");
  if (!pemFile.empty() && !platform::fileExists(pemFile)) {
    bracket.log().LogData("filename", base::loggable(pemFile));
    return bracket.fail("The client certificate cannot be read.");
  }
  settings_.server.tls.clientCertificate = pemFile;
  return true;
}

std::optional<std::string> ClsMailMan::smtpSslServerCert() {
  const MethodBracket bracket(*this, "GetSmtpSslServerCert");
  const std::string pem = session_.serverCertificate();
  if (!pem.empty()) return pem;
  bracket.fail("No SSL server certificate.  Check to make sure the connection was SSL.");
  return std::nullopt;
}

std::vector<platform::MxRecord> ClsMailMan::mailHosts(const std::string& emailOrDomain,
                                                      base::LogBase& log) const {
  std::string domain;
  std::vector<platform::MxRecord> hosts;
  if (domainOf(emailOrDomain, domain, log)) hosts = lookupMx(dns_, domain, log);
  if (hosts.empty()) log.LogData("emailOrDomain", base::loggable(emailOrDomain));
  return hosts;
}

std::optional<std::string> ClsMailMan::mxLookup(const std::string& emailOrDomain) {
  const MethodBracket bracket(*this, "MxLookup");
  const std::vector<platform::MxRecord> hosts = mailHosts(emailOrDomain, bracket.log());
  if (hosts.empty()) return std::nullopt;
  return hosts.front().host;
}

std::vector<std::string> ClsMailMan::mxLookupAll(const std::string& emailOrDomain) {
  const MethodBracket bracket(*this, "MxLookupAll");
  std::vector<std::string> names;
  for (platform::MxRecord& host : mailHosts(emailOrDomain, bracket.log())) {
    names.push_back(std::move(host.host));
  }
  if (names.empty()) {
    bracket.log().LogError("Failed.");
  } else {
    bracket.log().LogInfo("Success.");
  }
  return names;
}

}  // namespace kelvado
