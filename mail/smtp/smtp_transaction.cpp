#include "mail/smtp/smtp_transaction.h"

#include "base/ascii.h"
#include "base/log_base.h"
#include "mail/smtp/wire_text.h"
#include "platform/system/files.h"

namespace kelvado {
namespace {

// Between two pieces the application may abort and hears of the progress.
constexpr std::size_t kPieceBytes = 64 * 1024;
// Always begins with its own line end, also behind a text that ended in one.
constexpr std::string_view kTerminator = "\r\n.\r\n";

constexpr const char* kToFailure = "Failed when sending RCPT TO:<";
constexpr const char* kCcFailure = "Failed when sending cc RCPT TO:<";
constexpr const char* kBccFailure = "Failed when sending bcc RCPT TO:<";

const char* yesNo(bool value) {
  return value ? "true" : "false";
}

std::size_t dataSize(std::string_view mime) {
  std::size_t size = 0;
  DataEncoder encoder(mime);
  for (std::string piece; encoder.next(kPieceBytes, piece);) size += piece.size();
  return size;
}

}  // namespace

TransactionResult SmtpTransaction::lost() {
  wire_.close();
  return TransactionResult::Failed;
}

TransactionResult SmtpTransaction::refused() {
  return wire_.outOfStep() ? lost() : TransactionResult::Rejected;
}

std::string SmtpTransaction::mailFromCommand(const std::string& reversePath) const {
  std::string command = "MAIL FROM:<" + reversePath + ">";
  if (dsn_ && !options_.dsn.ret.empty()) command += " RET=" + options_.dsn.ret;
  if (dsn_ && !options_.dsn.envid.empty()) command += " ENVID=" + options_.dsn.envid;
  return command;
}

std::string SmtpTransaction::rcptToCommand(const std::string& address) const {
  std::string command = "RCPT TO:<" + address + ">";
  if (dsn_ && !options_.dsn.notify.empty()) command += " NOTIFY=" + options_.dsn.notify;
  return command;
}

TransactionResult SmtpTransaction::mailFrom(const std::string& reversePath) {
  if (commands_.next()) return TransactionResult::Sent;

  call_.log.LogError("Failed when sending MAIL FROM:<" + reversePath + ">");
  if (!commands_.sent() || wire_.replyCode() == kNoReplyCode) return lost();
  call_.log.LogData("response", wire_.loggableReply());
  if (wire_.replyCode() == 421 &&
      base::containsNoCase(wire_.replyText(), "maximum allowed messages")) {
    call_.log.LogInfo("Need new SMTP connection");
    wire_.close();
    return TransactionResult::NeedsNewConnection;
  }
  commands_.skipAhead();
  return refused();
}

// False only when there is no going on; a rejected recipient is no reason.
bool SmtpTransaction::rcptToAll(const std::vector<std::string>& addresses,
                                const char* failureText) {
  for (const std::string& address : addresses) {
    if (call_.progress.abortCheck()) {
      call_.log.LogError("Mail sending aborted by application");
      if (commands_.isAhead()) wire_.close();
      return false;
    }
    if (rcptTo(address, failureText)) {
      ++accepted_;
    } else if (!wire_.isOpen()) {
      return false;
    }
  }
  return true;
}

bool SmtpTransaction::rcptTo(const std::string& address, const char* failureText) {
  if (commands_.next()) return true;

  call_.log.LogError(failureText + address + ">");
  call_.log.LogData("bad_address", address);
  badAddresses_.push_back(address);
  // Without a reply the next one could be taken for the reply to something else.
  if (!commands_.sent() || wire_.outOfStep()) wire_.close();
  return false;
}

TransactionResult SmtpTransaction::offerRecipients(const Envelope& envelope,
                                                   SendCounters& counters) {
  commands_.add(mailFromCommand(envelope.reversePath));
  for (const auto* addresses : {&envelope.to, &envelope.cc, &envelope.bcc}) {
    for (const std::string& address : *addresses) commands_.add(rcptToCommand(address));
  }
  if (checksConnection_ && !logReuse(commands_.next(), call_.log)) {
    wire_.close();
    return TransactionResult::NotReady;
  }
  const TransactionResult begun = mailFrom(envelope.reversePath);
  if (begun != TransactionResult::Sent) return begun;

  const bool asked = rcptToAll(envelope.to, kToFailure) && rcptToAll(envelope.cc, kCcFailure) &&
                     rcptToAll(envelope.bcc, kBccFailure);
  counters.accepted += accepted_;
  if (!asked) return TransactionResult::Failed;
  const unsigned rejected = envelope.recipientCount() - accepted_;
  if (accepted_ == 0) return TransactionResult::Rejected;
  if (rejected > 0 && options_.allOrNone) {
    call_.log.LogError("One or more RCPT TO commands failed.");
    return TransactionResult::Rejected;
  }
  if (rejected > 0) {
    call_.log.LogInfo("Warning: failed to send to " + std::to_string(rejected) +
                      " recipient(s), continuing to send to " + std::to_string(accepted_) +
                      " recipient(s)");
  }
  return TransactionResult::Sent;
}

TransactionResult SmtpTransaction::run(const Envelope& envelope, std::string_view mime,
                                       SendCounters& counters) {
  const TransactionResult offered = offerRecipients(envelope, counters);
  if (offered != TransactionResult::Sent) return offered;

  const bool asked = wire_.sendCommand("DATA", call_);
  if (!asked || !wire_.readReply(354, call_)) {
    call_.log.LogError("Failed when sending DATA command");
    return asked ? refused() : lost();
  }
  if (!sendText(mime)) {
    call_.log.LogError("Failed when sending email body");
    return lost();  // the server would take all that follows for more of the text
  }
  if (!endText()) return refused();
  if (!options_.sentMailLog.empty()) appendToSentMailLog(mime);
  return TransactionResult::Sent;
}

// The terminator travels with the last piece: one segment less for every mail.
bool SmtpTransaction::sendText(std::string_view mime) {
  call_.log.LogData("email_size", std::to_string(dataSize(mime)));
  DataEncoder encoder(mime);
  std::string piece;
  bool more = encoder.next(kPieceBytes, piece);
  for (;;) {
    const std::size_t size = piece.size();
    std::string following;
    more = more && encoder.next(kPieceBytes, following);
    if (!more) piece += kTerminator;
    if (call_.progress.abortCheck() || !wire_.sendBytes(piece, call_)) return false;
    call_.progress.consume(size);
    if (!more) return true;
    piece.swap(following);
  }
}

bool SmtpTransaction::endText() {
  call_.log.LogInfo("Sent DATA terminator");
  if (wire_.readReply(250, call_)) return true;
  call_.log.LogError("Failed when sending end-of-body");
  call_.log.LogData("CommandSent", yesNo(true));
  call_.log.LogData("GotResponseCode", std::to_string(wire_.replyCode()));
  call_.log.LogData("TimedOut", yesNo(wire_.timedOut()));
  call_.log.LogData("Aborted", yesNo(call_.progress.aborted()));
  return false;
}

// The mail is sent: a log that cannot be written does not change that.
void SmtpTransaction::appendToSentMailLog(std::string_view mime) {
  const platform::File file = platform::openFile(options_.sentMailLog, "ab");
  if (file == nullptr) {
    call_.log.LogInfo("The log of sent mail cannot be opened.");
    return;
  }
  const auto write = [&file](std::string_view bytes) {
    return std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
  };
  bool written = write("--BEGIN SENT KELVADO EMAIL--\n");
  DataEncoder encoder(mime);
  for (std::string piece; encoder.next(kPieceBytes, piece);) written = written && write(piece);
  written = written && write("\n--END SENT KELVADO EMAIL--\n");
  if (!written) call_.log.LogInfo("The log of sent mail cannot be written.");
}

bool logReuse(bool good, base::LogBase& log) {
  log.LogInfo(good ? "Using existing/open SMTP connection to send email." : "RSET failed.");
  if (!good) log.LogInfo("Need new SMTP connection");
  return good;
}

}  // namespace kelvado
