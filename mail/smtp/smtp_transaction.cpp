#include "mail/smtp/smtp_transaction.h"

#include "base/ascii.h"
#include "base/text.h"
#include "mail/smtp/wire_text.h"
#include "platform/system/files.h"

namespace kelvado {
namespace {

// No text becomes so many times its estimate by all its encodings.
constexpr std::size_t kMostGrowth = 16;
// Always begins with a line end of its own, also behind a text that ended in one.
constexpr std::string_view kTerminator = "\r\n.\r\n";

constexpr const char* kToFailure = "Failed when sending RCPT TO:<";
constexpr const char* kCcFailure = "Failed when sending cc RCPT TO:<";
constexpr const char* kBccFailure = "Failed when sending bcc RCPT TO:<";

const char* yesNo(bool value) {
  return value ? "true" : "false";
}

bool isRefusal(int code) {
  return code >= 400 && code < 600;
}

}  // namespace

TransactionResult SmtpTransaction::lost() {
  wire_.close();
  return TransactionResult::Failed;
}

TransactionResult SmtpTransaction::refused() {
  return wire_.outOfStep() ? lost() : TransactionResult::Rejected;
}

// Checked before anything is sent: the server would refuse the text only after all of it.
bool SmtpTransaction::isWithinSize(MessageText& text) {
  const std::uint64_t limit = extensions_.maxSize;
  if (limit == 0 || text.sizeEstimate() * kMostGrowth <= limit) return true;
  const std::uint64_t size = text.size().message;
  if (size <= limit) return true;
  call_.log.LogError("The message is larger than the SMTP server accepts.");
  call_.log.LogData("message_size", std::to_string(size));
  call_.log.LogData("server_limit", std::to_string(limit));
  wire_.noteFailure(SmtpStep::Envelope, "the message has " + std::to_string(size) +
                                            " bytes, and the server takes " +
                                            std::to_string(limit));
  return false;
}

bool SmtpTransaction::takesAddresses(const Envelope& envelope) const {
  const std::string* address = extensions_.smtpUtf8 ? nullptr : envelope.firstBeyondAscii();
  if (address == nullptr) return true;
  call_.log.LogError(
      "An address is not ASCII, and the SMTP server does not take such addresses (SMTPUTF8).");
  call_.log.LogData("address", base::loggable(*address));
  wire_.noteFailure(SmtpStep::Envelope,
                    "an address is not ASCII, and the server does not take such (SMTPUTF8)");
  return false;
}

std::string SmtpTransaction::mailFromCommand(const Envelope& envelope) const {
  const DsnOptions& dsn = options_.dsn;
  std::string command = "MAIL FROM:<" + envelope.reversePath + ">";
  if (extensions_.dsn && !dsn.ret.empty()) command += " RET=" + dsn.ret;
  if (extensions_.dsn && !dsn.envid.empty()) command += " ENVID=" + dsn.envid;
  if (envelope.firstBeyondAscii() != nullptr) command += " SMTPUTF8";
  return command;
}

std::string SmtpTransaction::rcptToCommand(const std::string& address) const {
  std::string command = "RCPT TO:<" + address + ">";
  if (extensions_.dsn && !options_.dsn.notify.empty()) command += " NOTIFY=" + options_.dsn.notify;
  return command;
}

TransactionResult SmtpTransaction::mailFrom(const std::string& reversePath) {
  if (commands_.next()) return TransactionResult::Sent;

  wire_.noteFailure(SmtpStep::MailFrom);
  call_.log.LogError("Failed when sending MAIL FROM:<" + reversePath + ">");
  if (!commands_.sent() || wire_.replyCode() == kNoReplyCode) return lost();
  call_.log.LogData("response", wire_.loggableReply());
  const bool isClosing = wire_.replyCode() == 421;
  if (isClosing && base::containsNoCase(wire_.replyText(), "maximum allowed messages")) {
    call_.log.LogInfo("Need new SMTP connection");
    wire_.close();
    return TransactionResult::NeedsNewConnection;
  }
  commands_.skipAhead();
  return isClosing ? TransactionResult::NeedsNewConnection : refused();
}

// False only when the transaction cannot go on; a rejected recipient does not end it.
bool SmtpTransaction::rcptToAll(const std::vector<std::string>& addresses,
                                std::vector<std::string>& postponed, const char* failureText) {
  for (const std::string& address : addresses) {
    if (call_.progress.abortCheck()) {
      call_.log.LogError("Mail sending aborted by application");
      if (commands_.isAhead()) wire_.close();
      return false;
    }
    if (rcptTo(address, postponed, failureText)) {
      ++accepted_;
    } else if (!wire_.isOpen()) {
      return false;
    }
  }
  return true;
}

bool SmtpTransaction::rcptTo(const std::string& address, std::vector<std::string>& postponed,
                             const char* failureText) {
  if (commands_.next()) return true;

  constexpr int kTooManyRecipients = 452;
  const bool replied = commands_.sent() && wire_.replyCode() != kNoReplyCode;
  if (replied && wire_.replyCode() == kTooManyRecipients && accepted_ > 0 && !options_.allOrNone) {
    postponed.push_back(address);
    return false;
  }
  wire_.noteFailure(SmtpStep::RcptTo);
  call_.log.LogError(failureText + base::loggable(address) + ">");
  if (replied) {
    call_.log.LogData("bad_address", base::loggable(address));
    badAddresses_.push_back(address);
  }
  // Servers that check the name in EHLO may say so only here; nothing else of RCPT can be meant.
  if (replied && wire_.replyCode() == 504) {
    call_.log.LogError("The server may want a full name of this machine in EHLO: HeloHostname.");
  }
  // Without a reply the next one could be taken for the reply to something else.
  if (!commands_.sent() || wire_.outOfStep()) wire_.close();
  return false;
}

// The text, if there is one, is made while the server is at work.
TransactionResult SmtpTransaction::offer(const Envelope& envelope, MessageText* text,
                                         SendCounters& counters) {
  if (!takesAddresses(envelope)) return TransactionResult::Rejected;
  commands_.add(mailFromCommand(envelope));
  for (const auto* addresses : {&envelope.to, &envelope.cc, &envelope.bcc}) {
    for (const std::string& address : *addresses) commands_.add(rcptToCommand(address));
  }
  commands_.start();
  if (text != nullptr) text->size();
  if (checksConnection_ && !logReuse(commands_.next(), call_.log)) {
    wire_.close();
    return TransactionResult::NotReady;
  }
  const TransactionResult begun = mailFrom(envelope.reversePath);
  if (begun != TransactionResult::Sent) return begun;

  postponed_.reversePath = envelope.reversePath;
  const bool asked = rcptToAll(envelope.to, postponed_.to, kToFailure) &&
                     rcptToAll(envelope.cc, postponed_.cc, kCcFailure) &&
                     rcptToAll(envelope.bcc, postponed_.bcc, kBccFailure);
  counters.accepted += accepted_;
  if (!asked) return TransactionResult::Failed;
  const unsigned postponed = postponed_.recipientCount();
  if (postponed > 0) {
    call_.log.LogInfo("The server wants another transaction for " + std::to_string(postponed) +
                      " recipient(s)");
  }
  rejected_ = envelope.recipientCount() - accepted_ - postponed;
  if (accepted_ == 0) return TransactionResult::Rejected;
  if (rejected_ > 0 && options_.allOrNone) {
    call_.log.LogError("One or more RCPT TO commands failed.");
    return TransactionResult::Rejected;
  }
  return TransactionResult::Sent;
}

TransactionResult SmtpTransaction::run(const Envelope& envelope, MessageText& text,
                                       SendCounters& counters) {
  if (!isWithinSize(text)) return TransactionResult::Failed;
  const TransactionResult offered = offer(envelope, &text, counters);
  if (offered != TransactionResult::Sent) return offered;
  if (rejected_ > 0) {
    call_.log.LogInfo("Warning: failed to send to " + std::to_string(rejected_) +
                      " recipient(s), continuing to send to " + std::to_string(accepted_) +
                      " recipient(s)");
  }
  const bool asked = wire_.sendCommand("DATA", call_);
  if (!asked || !wire_.readReply(354, call_)) {
    wire_.noteFailure(SmtpStep::Data);
    call_.log.LogError("Failed when sending DATA command");
    // After anything but a refusal the server may be waiting for the text, after a bare 354 it is.
    return asked && isRefusal(wire_.replyCode()) ? TransactionResult::Rejected : lost();
  }
  if (!sendText(text)) {
    wire_.noteFailure(SmtpStep::Text);
    call_.log.LogError("Failed when sending email body");
    return lost();  // the server would take all that follows for more of the text
  }
  if (!endText()) return refused();
  if (!options_.sentMailLog.empty()) appendToSentMailLog(text);
  return TransactionResult::Sent;
}

// The terminator goes out with the last piece: that saves a segment for every mail.
bool SmtpTransaction::sendText(MessageText& text) {
  const DataSize& size = text.size();
  call_.log.LogData("email_size", std::to_string(size.message + size.doubledDots));
  std::string held;
  const auto sendHeld = [&](std::size_t bytesOfText, bool isLast) {
    if (call_.progress.abortCheck() || !wire_.sendText(held, isLast, call_)) return false;
    call_.progress.consume(bytesOfText);
    return true;
  };
  const auto hold = [&](std::string_view piece) {
    if (!held.empty() && !sendHeld(held.size(), false)) return false;
    held = piece;
    return true;
  };
  if (!text.forEachPiece(hold)) return false;
  const std::size_t bytesOfText = held.size();
  held += kTerminator;
  return sendHeld(bytesOfText, true);
}

bool SmtpTransaction::endText() {
  call_.log.LogInfo("Sent DATA terminator");
  if (wire_.readReply(250, call_)) return true;
  wire_.noteFailure(SmtpStep::Text);
  call_.log.LogError("Failed when sending end-of-body");
  call_.log.LogData("CommandSent", yesNo(true));
  call_.log.LogData("GotResponseCode", std::to_string(wire_.replyCode()));
  call_.log.LogData("TimedOut", yesNo(wire_.timedOut()));
  call_.log.LogData("Aborted", yesNo(call_.progress.aborted()));
  return false;
}

// The mail is sent already: a log that cannot be written is only mentioned.
void SmtpTransaction::appendToSentMailLog(MessageText& text) {
  const platform::File file = platform::openFile(options_.sentMailLog, "ab");
  if (file == nullptr) {
    call_.log.LogInfo("The log of sent mail cannot be opened.");
    return;
  }
  const auto write = [&file](std::string_view bytes) {
    return std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
  };
  bool written = write("--BEGIN SENT KELVADO EMAIL--\n");
  written = written && text.forEachPiece(write) && write("\n--END SENT KELVADO EMAIL--\n");
  if (!written) call_.log.LogInfo("The log of sent mail cannot be written.");
}

bool logReuse(bool good, base::LogBase& log) {
  log.LogInfo(good ? "Using existing/open SMTP connection to send email." : "RSET failed.");
  if (!good) log.LogInfo("Need new SMTP connection");
  return good;
}

}  // namespace kelvado
