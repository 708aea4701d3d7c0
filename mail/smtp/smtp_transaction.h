// One mail transaction: MAIL FROM, RCPT TO for everybody, DATA, and the text (RFC 5321
// section 3.3). Used by SmtpConnImpl on a connection that is ready. Closes the connection when it
// can no longer tell which reply belongs to which command.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/log_base.h"
#include "mail/smtp/command_pipeline.h"
#include "mail/smtp/envelope.h"
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
  Rejected,            // by the server; the connection stays usable
  NeedsNewConnection,  // this one takes no more messages
  Failed,
};

class SmtpTransaction {
 public:
  // Rejected recipients are added to `badAddresses`.
  SmtpTransaction(SmtpWire& wire, const SmtpExtensions& extensions, const SendOptions& options,
                  std::vector<std::string>& badAddresses, Call& call)
      : wire_(wire),
        commands_(wire, extensions.pipelining, call),
        dsn_(extensions.dsn),
        options_(options),
        badAddresses_(badAddresses),
        call_(call) {}

  // To be called first: the transaction begins with RSET, to see whether the connection still is
  // good for one.
  void checkConnection() {
    checksConnection_ = true;
    commands_.add("RSET");
  }

  // Both add the recipients that were accepted to the counters.
  TransactionResult run(const Envelope& envelope, std::string_view mime, SendCounters& counters);
  // MAIL FROM and RCPT TO only. The caller resets the session afterwards.
  TransactionResult offerRecipients(const Envelope& envelope, SendCounters& counters);

 private:
  std::string mailFromCommand(const std::string& reversePath) const;
  std::string rcptToCommand(const std::string& address) const;
  TransactionResult mailFrom(const std::string& reversePath);
  bool rcptToAll(const std::vector<std::string>& addresses, const char* failureText);
  bool rcptTo(const std::string& address, const char* failureText);
  bool sendText(std::string_view mime);
  bool endText();
  void appendToSentMailLog(std::string_view mime);
  TransactionResult refused();
  TransactionResult lost();

  SmtpWire& wire_;
  CommandPipeline commands_;
  bool checksConnection_ = false;
  bool dsn_;
  const SendOptions& options_;
  std::vector<std::string>& badAddresses_;
  Call& call_;
  unsigned accepted_ = 0;
};

// Logs what RSET said of a connection that was kept, and returns it.
bool logReuse(bool good, base::LogBase& log);

}  // namespace kelvado
