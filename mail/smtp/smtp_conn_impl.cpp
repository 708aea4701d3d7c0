#include "mail/smtp/smtp_conn_impl.h"

#include <algorithm>
#include <limits>

#include "base/ascii.h"
#include "base/log_null.h"
#include "base/text.h"
#include "mail/smtp/token_login.h"
#include "mail/smtp/wire_text.h"
#include "net/local_host_name.h"

namespace kelvado {
namespace {

// No mail is handed to hosts of this domain.
constexpr std::string_view kBlockedDomain = ".blocked-relay.invalid";
constexpr const char* kBlockedMessage =
    "SMTP protocol failure. Please contact support@kelvado.example.";
// This provider's servers want EHLO before STARTTLS, and end the session otherwise.
constexpr const char* kEhloFirstDomain = "ehlo-first-provider.example";
constexpr int kMaxPort = 65535;
// For the QUIT of an object that is destroyed.
constexpr std::uint32_t kHangUpTimeoutMs = 2000;

bool isPort(int port) {
  return port >= 1 && port <= kMaxPort;
}

std::string atServer(const char* text, const SmtpServer& server) {
  return text + base::loggable(server.host) + ":" + std::to_string(server.port);
}

void logCredentials(const SmtpCredentials& credentials, base::LogBase& log) {
  const auto& [username, password, domain, method, token] = credentials;
  const bool noUser = !username || username->empty();
  const bool noPassword = token.empty() && (!password || password->empty());
  if (noUser) log.LogInfo(username ? "No SMTP login provided.." : "No SMTP login provided.");
  if (noPassword) {
    log.LogInfo(password ? "No SMTP password provided.." : "No SMTP password provided.");
  }
  if (!noUser && !noPassword) return;
  const bool absent = (noUser && !username) || (noPassword && !password);
  log.LogInfo(absent ? "Skipping SMTP authentication because no login/password provided."
                     : "Skipping SMTP authentication because no login/password provided..");
}

bool isSafeSetting(bool safe, const char* what, const std::string& value, base::LogBase& log) {
  if (safe) return true;
  log.LogError("An SMTP setting holds characters that are not allowed.");
  log.LogData(what, base::loggable(value));
  return false;
}

// Its value is not logged.
bool isSafeToken(const std::string& token, base::LogBase& log) {
  if (token.empty() || isAccessToken(token)) return true;
  log.LogError("The access token holds characters that are not allowed.");
  return false;
}

bool areSafeSettings(const SmtpServer& server, base::LogBase& log) {
  const std::string username = server.credentials.username.value_or("");
  return isSafeSetting(isSafeWord(server.host), "smtp_host", server.host, log) &&
         isSafeSetting(isSafeWord(server.helloName), "helo_hostname", server.helloName, log) &&
         isSafeSetting(isSafeText(username), "smtp_user", username, log) &&
         isSafeToken(server.credentials.accessToken, log);
}

// Whether a connection that was made for `old` serves for `server`: time-outs and the EHLO name do
// not matter, and a session that is logged in outlives the renewal of its access token.
bool isSameSession(const SmtpServer& server, SmtpServer old) {
  old.connectTimeoutSeconds = server.connectTimeoutSeconds;
  old.readTimeoutMs = server.readTimeoutMs;
  old.helloName = server.helloName;
  if (server.credentials.hasToken() && old.credentials.hasToken()) {
    old.credentials.accessToken = server.credentials.accessToken;
  }
  return server == old;
}

}  // namespace

SmtpConnImpl::SmtpConnImpl(platform::SocketApi& sockets) : sockets_(sockets), wire_(sockets) {}

bool SmtpConnImpl::connectAndAuthenticate(const SmtpServer& server, Call& call) {
  const base::LogContext context(call.log, "SMTP_Connect");
  session_ = {};
  const bool ready = openConnection(server, call) && greetAndLogin(server, call);
  const platform::PeerCertificate& certificate = wire_.peerCertificate();
  session_.certificate = certificate.pem;
  session_.certificateProblem = base::loggableLine(certificate.problem);
  session_.helloName = helloName_;
  // A connection that is not logged in, or not secured, must never be taken for a ready one.
  if (!ready) wire_.close();
  if (ready) wire_.clearFailure();  // of a greeting that a second one made good
  hasCarriedMail_ = false;
  return ready;
}

bool SmtpConnImpl::connectAndGreet(const SmtpServer& server, Call& call) {
  const base::LogContext context(call.log, "SMTP_Connect");
  const bool greeted = openConnection(server, call);
  if (greeted) smtpQuit(call);
  wire_.close();
  return greeted;
}

bool SmtpConnImpl::reuseOrConnect(const SmtpServer& server, Call& call) {
  if (!abortAllRequested() && adoptConnection(server, call) && logReuse(smtpRset(call), call.log)) {
    return true;
  }
  return connectAfresh(server, call);
}

bool SmtpConnImpl::prepareToSend(const SmtpServer& server, Call& call) {
  isUnchecked_ = !abortAllRequested() && adoptConnection(server, call);
  wasConnected_ = isUnchecked_ || connectAfresh(server, call);
  return wasConnected_;
}

// False when the open connection, if there is one, does not serve for these settings.
bool SmtpConnImpl::adoptConnection(const SmtpServer& server, Call& call) {
  const bool wantsTls = server.ssl || server.startTls;
  if (!wire_.isOpen()) {
    call.log.LogInfo("No connection, need new SMTP connection.");
  } else if (wantsTls && !wire_.isSecure()) {
    call.log.LogInfo("No secure connection, need new SMTP connection.");
  } else if (!isSameSession(server, server_)) {
    call.log.LogInfo("Other settings, need new SMTP connection.");
  } else {
    server_ = server;
    wire_.setReadTimeout(server.readTimeoutMs);
    wire_.receiveArrived();
    return true;
  }
  return false;
}

bool SmtpConnImpl::connectAfresh(const SmtpServer& server, Call& call) {
  wire_.close();
  if (!abortAllRequested() && connectAndAuthenticate(server, call)) return true;
  if (call.abortRequested()) {
    call.log.LogError("Aborted by application");
    noteFailure("aborted by the application");
  }
  call.log.LogError("Failed to connect to SMTP server.");
  return false;
}

bool SmtpConnImpl::openConnection(const SmtpServer& given, Call& call) {
  base::LogBase& log = call.log;
  if (abortAllRequested()) {
    log.LogError("Aborted by application");
    return false;
  }
  logCredentials(given.credentials, log);
  if (given.host.empty()) {
    log.LogError("No hostname");
    noteFailure("no mail server is named");
    return false;
  }
  if (!areSafeSettings(given, log)) {
    noteFailure("a setting of the mail server holds characters that are not allowed");
    return false;
  }
  SmtpServer server = given;
  server.host = base::lowered(given.host);
  log.LogInfo(atServer("Connecting to SMTP server ", given));
  log.LogData("smtp_host", base::loggable(given.host));
  log.LogData("smtp_port", std::to_string(given.port));
  const SmtpCredentials& credentials = given.credentials;
  if (!credentials.domain.empty()) log.LogData("domain", base::loggable(credentials.domain));
  log.LogData("smtp_user", credentials.username ? base::loggable(*credentials.username) : "NULL");
  log.LogData("trying-auth-method",
              credentials.complete() ? base::loggable(credentials.method) : "NONE");

  if (("." + server.host).ends_with(kBlockedDomain)) {
    log.LogError(kBlockedMessage);
    noteFailure("no mail is handed to this server");
    return false;
  }
  if (!isPort(server.port)) {
    log.LogError("The SMTP port is not a port number.");
    noteFailure("the port of the mail server is not a port number");
    return false;
  }
  if (!server.proxy.host.empty() && !isPort(server.proxy.port)) {
    log.LogError("The port of the HTTP proxy is not a port number.");
    noteFailure("the port of the HTTP proxy is not a port number");
    return false;
  }
  keepSecrets(wire_, credentials);
  wire_.setReadTimeout(server.readTimeoutMs);
  const std::uint64_t connectTimeoutMs = std::uint64_t{server.connectTimeoutSeconds} * 1000;
  const auto timeoutMs = static_cast<std::uint32_t>(
      std::min<std::uint64_t>(connectTimeoutMs, std::numeric_limits<std::uint32_t>::max()));
  if (!wire_.connect(server.host, static_cast<std::uint16_t>(server.port), server.proxy, timeoutMs,
                     call) ||
      (server.ssl && !secure(server, call))) {
    log.LogError(server.ssl ? "Failed to connect to secure SMTP (1)" : "Failed to connect (1)");
    return false;
  }
  server_ = given;
  helloName_ = helloName(given);
  if (wire_.readReply(220, call)) {
    log.LogData("InitialResponse", wire_.loggableReply());
    session_.greeting = std::string(base::trimmed(base::loggableLine(wire_.loggableReply())));
    return true;
  }
  wire_.noteFailure(SmtpStep::Greeting);
  log.LogError("Failed to get initial SMTP response..");
  log.LogError("The SMTP server may be denying access for this domain.");
  return false;
}

bool SmtpConnImpl::greetAndLogin(const SmtpServer& server, Call& call) {
  login_ = LoginOutcome::Failed;
  const bool ehloFirst =
      base::containsNoCase(server.credentials.username.value_or(""), kEhloFirstDomain);
  if (server.startTls && !ehloFirst && !startTls(server, "Sending STARTTLS (1)...", call)) {
    return false;
  }

  Hello hello = sayHello(server, call);
  if (hello == Hello::Failed) return false;
  if (server.startTls && ehloFirst) {
    if (!startTls(server, "Sending STARTTLS (2)...", call)) return false;
    hello = sayHello(server, call);
  }
  session_.extended = hello == Hello::Ehlo;
  session_.loggedIn = hello != Hello::Failed && logIn(server, hello, call) && isLoggedIn();
  return hello != Hello::Failed && login_ != LoginOutcome::Failed;
}

bool SmtpConnImpl::logIn(const SmtpServer& server, Hello hello, Call& call) {
  const bool extended = hello == Hello::Ehlo;
  login_ = extended ? authenticate(wire_, server.credentials, extensions_.authMethods, call)
                    : authenticateAfterHelo(wire_, server.credentials, call);
  if (login_ == LoginOutcome::Failed) return false;
  call.log.LogInfo(
      atServer(extended ? "CONNECTED to ESMTP server " : "CONNECTED to SMTP server ", server));
  return true;
}

bool SmtpConnImpl::secure(const SmtpServer& server, Call& call) {
  return wire_.secure(base::lowered(server.host), static_cast<std::uint16_t>(server.port),
                      server.tls, call);
}

// Nothing that the server says lets the session go on without TLS.
bool SmtpConnImpl::startTls(const SmtpServer& server, const char* announcement, Call& call) {
  base::LogBase& log = call.log;
  log.LogInfo(announcement);
  if (!wire_.sendCommand("STARTTLS", call)) {
    wire_.noteFailure(SmtpStep::StartTls);
    log.LogError("Failed to send STARTTLS");
    return false;
  }
  if (!wire_.readReply(220, call)) {
    if (wire_.replyCode() != 503) {
      wire_.noteFailure(SmtpStep::StartTls);
      log.LogError("Failed to receive STARTTLS response");
      return false;
    }
    log.LogInfo("Received 503 SMTP Status...");
    if (!resendStartTls(server, call)) return false;
  }
  if (!secure(server, call)) {
    log.LogError("Failed to establish TLS connection.");
    return false;
  }
  log.LogInfo("TLS connection established.");
  return true;
}

// For a server that wants to be greeted first.
bool SmtpConnImpl::resendStartTls(const SmtpServer& server, Call& call) {
  if (!sayEhlo(server, call)) {
    call.log.LogError("Failed to get EHLO response (2)");
    return false;
  }
  call.log.LogInfo("Resending STARTTLS...");
  if (!wire_.sendCommand("STARTTLS", call)) {
    wire_.noteFailure(SmtpStep::StartTls);
    call.log.LogError("Failed to send STARTTLS (2)");
    return false;
  }
  if (!wire_.readReply(220, call)) {
    wire_.noteFailure(SmtpStep::StartTls);
    call.log.LogError("Failed to receive STARTTLS response (2)");
    return false;
  }
  return true;
}

std::string SmtpConnImpl::helloName(const SmtpServer& server) const {
  if (!server.helloName.empty()) return server.helloName;
  std::string name;
  sockets_.hostName(name);
  return name.empty() || !isSafeWord(name) ? "localhost" : name;
}

// For a server that takes no short name: the full one, or the address that the connection comes
// from (RFC 5321 section 4.1.3). Empty when neither is known.
std::string SmtpConnImpl::longerName(Call& call) const {
  std::string name = readLocalHostName(sockets_, call.log);
  if (name.find('.') != std::string::npos) return name;
  name = wire_.localAddress();
  return name.empty() ? name : "[" + name + "]";
}

SmtpConnImpl::Hello SmtpConnImpl::sayHello(const SmtpServer& server, Call& call) {
  if (sayEhlo(server, call)) return Hello::Ehlo;
  if (!wire_.isOpen()) return Hello::Failed;
  call.log.LogInfo("EHLO failed, sending HELO...");
  return sayHelo(server, call) ? Hello::Helo : Hello::Failed;
}

bool SmtpConnImpl::sayEhlo(const SmtpServer& server, Call& call) {
  if (sendEhlo(call)) return true;
  const bool isRefused = wire_.isOpen() && (wire_.replyCode() == 504 || wire_.replyCode() == 550);
  const bool isShort = helloName_.find('.') == std::string::npos;
  if (!isRefused || !isShort || !server.helloName.empty()) return false;
  const std::string name = longerName(call);
  if (name.empty()) return false;
  call.log.LogInfo("The server refused the short name of this machine.");
  helloName_ = name;
  return sendEhlo(call);
}

bool SmtpConnImpl::sendEhlo(Call& call) {
  extensions_ = {};
  call.log.LogInfo("sendingHello");
  if (!wire_.sendCommand("EHLO " + helloName_, call)) {
    call.log.LogError("Failed to send Hello (EHLO)");
    call.log.LogData("hostname", base::loggable(helloName_));
    wire_.noteFailure(SmtpStep::Hello);
    wire_.close();
    return false;
  }
  const std::optional<SmtpExtensions> extensions = wire_.readEhloReply(call);
  call.log.LogData("helloResponse", wire_.loggableReply());
  if (extensions) extensions_ = *extensions;
  if (!extensions) wire_.noteFailure(SmtpStep::Hello);
  // A late reply would be taken for the one to HELO.
  if (wire_.outOfStep()) wire_.close();
  return extensions.has_value();
}

bool SmtpConnImpl::sayHelo(const SmtpServer& server, Call& call) {
  // The second try carries the server's own name, on purpose: some servers accept no other.
  const std::string names[] = {helloName_, base::lowered(server.host)};
  const char* failures[] = {"Failed to get response to Hello (HELO)",
                            "Failed to get response to 2nd-try Hello (HELO)"};
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (!wire_.sendCommand("HELO " + names[attempt], call)) {
      wire_.noteFailure(SmtpStep::Hello);
      call.log.LogError("Failed to send Hello");
      return false;
    }
    if (wire_.readReply(250, call)) {
      call.log.LogData("HeloResponse", wire_.loggableReply());
      return true;
    }
    wire_.noteFailure(SmtpStep::Hello);
    call.log.LogError(failures[attempt]);
    if (wire_.outOfStep()) return false;
  }
  return false;
}

bool SmtpConnImpl::smtpRset(Call& call) {
  return expectOk("RSET", call);
}

bool SmtpConnImpl::smtpNoop(Call& call) {
  return expectOk("NOOP", call);
}

bool SmtpConnImpl::expectOk(const char* command, Call& call) {
  if (!wire_.isOpen()) return false;
  const bool answered = wire_.sendCommand(command, call) && wire_.readReply(250, call);
  if (!answered) wire_.noteFailure(SmtpStep::Reset);
  if (wire_.outOfStep()) wire_.close();
  return answered;
}

bool SmtpConnImpl::smtpQuit(Call& call) {
  const bool answered =
      wire_.isOpen() && wire_.sendCommand("QUIT", call) && wire_.readReply(221, call);
  wire_.shutdown(call);
  return answered;
}

void SmtpConnImpl::hangUp() {
  base::LogNull log;
  ProgressMonitor progress;
  Call call{log, progress};
  wire_.setReadTimeout(kHangUpTimeoutMs);
  if (wire_.isOpen()) wire_.sendCommand("QUIT", call);
  wire_.shutdown(call);
}

}  // namespace kelvado
