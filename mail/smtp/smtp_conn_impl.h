// One client-side SMTP session: connects, greets, logs in, and sends messages one transaction after
// another over the connection that it keeps open. Used by ClsMailMan.
// Blocks within the time-outs of its settings; one thread at a time. Owns its socket.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "mail/mime/email2.h"
#include "mail/smtp/smtp_auth.h"
#include "mail/smtp/smtp_session.h"
#include "mail/smtp/smtp_transaction.h"
#include "mail/smtp/smtp_wire.h"

namespace kelvado {

// Which server, how and as whom.
struct SmtpServer {
  std::string host;
  int port = 25;
  bool ssl = false;       // TLS from the first byte
  bool startTls = false;  // upgraded before credentials or mail go out
  HttpProxy proxy;
  TlsRequirements tls;
  SmtpCredentials credentials;
  std::uint32_t connectTimeoutSeconds = 30;  // 0: the socket's own default
  std::uint64_t readTimeoutMs = 30'000;      // see effectiveReadTimeoutMs
  // For EHLO and HELO. Empty: the machine's own name; where the server refuses a short one (504,
  // 550), the full name or else the address.
  std::string helloName;

  bool operator==(const SmtpServer&) const = default;
};

class SmtpConnImpl {
 public:
  explicit SmtpConnImpl(platform::SocketApi& sockets = platform::systemSockets());

  // Makes a new connection; on failure the connection is closed.
  bool connectAndAuthenticate(const SmtpServer& server, Call& call);
  // Connects and reads the greeting, to find out whether a server answers. No connection is kept.
  bool connectAndGreet(const SmtpServer& server, Call& call);
  // Checks an open connection with RSET and keeps it, or makes a new one.
  bool reuseOrConnect(const SmtpServer& server, Call& call);
  // As reuseOrConnect, for a send that follows: that begins with the RSET, and makes a new one when
  // it fails.
  bool prepareToSend(const SmtpServer& server, Call& call);

  // The message is a prepared copy: its blind-copy recipients are in "Bcc". autoMessageId changes
  // it.
  bool sendEmail(Email2& message, const SendOptions& options, Call& call, SendCounters& counters);
  // With an envelope of its own.
  bool sendMime(const Envelope& envelope, MessageText& text, const SendOptions& options, Call& call,
                SendCounters& counters);
  // To each address of a list, in as many transactions as it needs.
  bool sendToList(const std::string& reversePath, const std::vector<std::string>& addresses,
                  MessageText& text, const SendOptions& options, Call& call,
                  SendCounters& counters);
  // Asks whether the server would take the recipients, and sends nothing.
  bool verifyRecipients(const Envelope& envelope, Call& call, SendCounters& counters);

  bool smtpRset(Call& call);
  bool smtpNoop(Call& call);
  bool smtpQuit(Call& call);  // closes whatever the server answers

  // Whether the last send had a connection. If not, that is in the log already.
  bool wasConnected() const { return wasConnected_; }

  // Sends QUIT, within two seconds, and closes; logs nothing. Does not wait for the reply, which
  // would change nothing.
  void hangUp();

  bool isOpen() const { return wire_.isOpen(); }
  // Whether the last connectAndAuthenticate logged in, rather than going on without.
  bool isLoggedIn() const { return login_ == LoginOutcome::LoggedIn; }
  const SmtpSession& session() const { return session_; }
  bool offersDsn() const { return extensions_.dsn; }
  bool timedOut() const { return wire_.timedOut(); }
  // PEM; empty when the connection is not secure.
  std::string serverCertificate() const { return wire_.serverCertificate(); }
  // Recipients that a server rejected since the list was cleared.
  const std::vector<std::string>& badAddresses() const { return badAddresses_; }
  void clearBadAddresses() { badAddresses_.clear(); }
  // Before the next operation: whether the last one timed out, and why it failed.
  void clearOutcome() {
    wire_.clearTimedOut();
    wire_.clearFailure();
  }
  // Why the last method failed; to be asked only then.
  const SmtpFailure& failure() const { return wire_.failure(); }
  // For what fails before or beside the session.
  void noteFailure(const std::string& reason) { wire_.noteFailure(SmtpStep::Preparation, reason); }
  void clearFailure() { wire_.clearFailure(); }

 private:
  enum class Hello { Failed, Ehlo, Helo };
  using TransactionSteps = std::function<TransactionResult(SmtpTransaction&)>;

  bool adoptConnection(const SmtpServer& server, Call& call);
  bool connectAfresh(const SmtpServer& server, Call& call);
  bool openConnection(const SmtpServer& server, Call& call);
  bool greetAndLogin(const SmtpServer& server, Call& call);
  bool startTls(const SmtpServer& server, const char* announcement, Call& call);
  bool secure(const SmtpServer& server, Call& call);
  bool resendStartTls(const SmtpServer& server, Call& call);
  Hello sayHello(const SmtpServer& server, Call& call);
  bool sayEhlo(const SmtpServer& server, Call& call);
  bool sendEhlo(Call& call);
  bool sayHelo(const SmtpServer& server, Call& call);
  bool expectOk(const char* command, Call& call);
  std::string helloName(const SmtpServer& server) const;
  std::string longerName(Call& call) const;
  bool logIn(const SmtpServer& server, Hello hello, Call& call);
  // Over the open connection, or over a new one when that cannot be used any more. `postponed`: see
  // SmtpTransaction.
  TransactionResult transact(const TransactionSteps& steps, const SendOptions& options,
                             Envelope& postponed, Call& call);
  bool sendInParts(std::vector<Envelope> parts, MessageText& text, const SendOptions& options,
                   Call& call, SendCounters& counters);

  platform::SocketApi& sockets_;
  SmtpWire wire_;
  SmtpServer server_;      // that the open connection was made for
  std::string helloName_;  // that the open connection greets with
  SmtpExtensions extensions_;
  LoginOutcome login_ = LoginOutcome::Failed;
  SmtpSession session_;
  bool isUnchecked_ = false;     // the open connection was kept for the next send
  bool hasCarriedMail_ = false;  // over the open connection, or tried to
  bool wasConnected_ = false;
  std::vector<std::string> badAddresses_;
};

}  // namespace kelvado
