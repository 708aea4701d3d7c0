// Why an operation of the mail library failed: at which step of the session, and what the server,
// or the network, said. The error log has the same in detail; this is for programs that decide by
// it and for people who want one line. Values only.
#pragma once

#include <string>

namespace kelvado {

// In the order of a session.
enum class SmtpStep {
  None,         // nothing failed
  Preparation,  // before any command: a setting, the mail, an abort
  Connect,      // the look-up of the name included
  Proxy,
  Greeting,
  Hello,
  StartTls,
  TlsHandshake,
  Certificate,
  Login,
  Reset,     // RSET or NOOP on an open connection
  Envelope,  // an address, or a size, that cannot be sent; no command was
  MailFrom,
  RcptTo,
  Data,  // the command
  Text,  // of the message, and the reply to its end
};

struct SmtpFailure {
  SmtpStep step = SmtpStep::None;
  int replyCode = 0;      // of the server's reply; 0: there was none
  bool timedOut = false;  // the server was silent for the whole time-out
  std::string text;       // the reply, or what went wrong; UTF-8, one line, no secret
  std::string server;     // "host:port"; empty before connecting

  // 4xx: the same may be accepted later (RFC 5321 section 4.2.1).
  bool refusedForNow() const { return replyCode >= 400 && replyCode < 500; }
  bool refusedForGood() const { return replyCode >= 500 && replyCode < 600; }
};

// The step and what came of it, without the server's name: "RCPT TO refused: 550 5.1.1 no such
// mailbox", "connection refused", "login: timed out".
std::string failureText(const SmtpFailure& failure);

}  // namespace kelvado
