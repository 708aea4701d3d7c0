// One mail transaction: MAIL FROM, RCPT TO for everybody, DATA, and the text (RFC 5321
// section 3.3). Used by SmtpConnImpl on a connection that is ready. Closes the connection when it
// cannot be sure any more which reply belongs to which command.
#pragma once

#include <string>
#include <vector>

#include "base/log_base.h"
#include "mail/smtp/command_pipeline.h"
#include "mail/smtp/envelope.h"
#include "mail/smtp/message_text.h"
#include "mail/smtp/smtp_wire.h"

namespace kelvado {

struct SendOptions {
  bool individual = false;  // one transaction for each To and Cc recipient
  bool autoMessageId = false;
  bool allOrNone = false;  // a rejected recipient fails the whole transaction
  DsnOptions dsn;
  std::string sentMailLog;  // file that sent messages are appended to; empty: none
};

struct SendCounters {
  unsigned accepted = 0;
  unsigned total = 0;
};

enum class TransactionResult {
  Sent,
  NotReady,            // the connection is no longer good for one; nothing has happened yet
  Rejected,            // by the server, or not to be had of it; the connection stays usable
  NeedsNewConnection,  // the server takes no more messages over this one
  Failed,
};

class SmtpTransaction {
 public:
  // Rejected recipients are added to `badAddresses`.
  SmtpTransaction(SmtpWire& wire, const SmtpExtensions& extensions, const SendOptions& options,
                  std::vector<std::string>& badAddresses, Call& call)
      : wire_(wire),
        extensions_(extensions),
        commands_(wire, extensions.pipelining, call),
        options_(options),
        badAddresses_(badAddresses),
        call_(call) {}

  // To be called first: the transaction begins with RSET, to find out whether the connection can
  // still be used.
  void checkConnection() {
    checksConnection_ = true;
    commands_.add("RSET");
  }

  // Both add the recipients that were accepted to the counters.
  TransactionResult run(const Envelope& envelope, MessageText& text, SendCounters& counters);
  // MAIL FROM and RCPT TO only. The caller resets the session afterwards.
  TransactionResult offerRecipients(const Envelope& envelope, SendCounters& counters) {
    return offer(envelope, nullptr, counters);
  }
  // For whom the server wants another transaction: it had enough recipients in this one (RFC 5321
  // section 4.5.3.1.10).
  const Envelope& postponed() const { return postponed_; }

 private:
  TransactionResult offer(const Envelope& envelope, MessageText* text, SendCounters& counters);
  bool isWithinSize(MessageText& text);
  bool takesAddresses(const Envelope& envelope) const;
  std::string mailFromCommand(const Envelope& envelope) const;
  std::string rcptToCommand(const std::string& address) const;
  TransactionResult mailFrom(const std::string& reversePath);
  bool rcptToAll(const std::vector<std::string>& addresses, std::vector<std::string>& postponed,
                 const char* failureText);
  bool rcptTo(const std::string& address, std::vector<std::string>& postponed,
              const char* failureText);
  bool sendText(MessageText& text);
  bool endText();
  void appendToSentMailLog(MessageText& text);
  TransactionResult refused();
  TransactionResult lost();

  SmtpWire& wire_;
  const SmtpExtensions& extensions_;
  CommandPipeline commands_;
  bool checksConnection_ = false;
  const SendOptions& options_;
  std::vector<std::string>& badAddresses_;
  Call& call_;
  unsigned accepted_ = 0;
  unsigned rejected_ = 0;
  Envelope postponed_;
};

// Logs whether RSET showed a kept connection to be usable, and returns it.
bool logReuse(bool good, base::LogBase& log);

}  // namespace kelvado
