// The sending half of SmtpConnImpl: a message, or a list, in as many transactions as it takes.
#include <algorithm>
#include <utility>

#include "base/text.h"
#include "mail/smtp/smtp_conn_impl.h"

namespace kelvado {
namespace {

bool isAborted(Call& call) {
  if (!call.abortRequested()) return false;
  call.log.LogError("Mail sending aborted by application");
  return true;
}

}  // namespace

bool SmtpConnImpl::sendEmail(Email2& message, const SendOptions& options, Call& call,
                             SendCounters& counters) {
  if (isAborted(call)) return false;
  Envelope envelope{message.reversePath(), message.recipients(RecipientKind::To),
                    message.recipients(RecipientKind::Cc), message.recipients(RecipientKind::Bcc)};
  if (envelope.to.empty()) call.log.LogInfo("Using undisclosed recipients");
  if (options.autoMessageId) message.generateMessageId(call.log);
  call.log.LogData("subject", base::loggable(message.headerField("Subject")));
  call.log.LogData("reversePath", base::loggable(envelope.reversePath));

  MessageText text(message);
  const std::string listFile = message.headerField("KVX-FileDistList");
  if (listFile.empty()) return sendMime(envelope, text, options, call, counters);

  const std::vector<std::string> addresses = readAddressFile(listFile, call.log);
  if (addresses.empty()) {
    noteFailure("the distribution list is empty");
    call.log.LogError("The distribution list is empty");
    return false;
  }
  return sendToList(envelope.reversePath, addresses, text, options, call, counters);
}

bool SmtpConnImpl::sendMime(const Envelope& envelope, MessageText& text, const SendOptions& options,
                            Call& call, SendCounters& counters) {
  std::vector<Envelope> parts =
      options.individual ? individualEnvelopes(envelope) : std::vector<Envelope>{envelope};
  return sendInParts(std::move(parts), text, options, call, counters);
}

bool SmtpConnImpl::sendToList(const std::string& reversePath,
                              const std::vector<std::string>& addresses, MessageText& text,
                              const SendOptions& options, Call& call, SendCounters& counters) {
  std::vector<Envelope> parts =
      listEnvelopes(reversePath, addresses, options.individual ? 1 : kRecipientsPerTransaction);
  if (!sendInParts(std::move(parts), text, options, call, counters)) return false;
  call.log.LogInfo("Mail sent to " + std::to_string(counters.accepted) + " recipient" +
                   (counters.accepted < 2 ? "" : "s"));
  return true;
}

TransactionResult SmtpConnImpl::transact(const TransactionSteps& steps, const SendOptions& options,
                                         Envelope& postponed, Call& call) {
  const auto run = [&] {
    SmtpTransaction transaction(wire_, extensions_, options, badAddresses_, call);
    if (std::exchange(isUnchecked_, false)) transaction.checkConnection();
    const TransactionResult result = steps(transaction);
    postponed = transaction.postponed();
    return result;
  };
  const bool isKept = isUnchecked_ || hasCarriedMail_;
  TransactionResult result = run();
  // The server's limit for one connection costs no message: once more, over a new one.
  const bool atItsEnd = result == TransactionResult::NeedsNewConnection && isKept;
  if (result == TransactionResult::NotReady || atItsEnd) {
    wasConnected_ = connectAfresh(server_, call);
    result = wasConnected_ ? run() : TransactionResult::Failed;
  }
  hasCarriedMail_ = true;
  return result;
}

bool SmtpConnImpl::sendInParts(std::vector<Envelope> parts, MessageText& text,
                               const SendOptions& options, Call& call, SendCounters& counters) {
  for (const Envelope& part : parts) counters.total += part.recipientCount();
  const auto isSafe = [&](const Envelope& part) {
    return isSafeEnvelope(part, options.dsn, call.log);
  };
  if (!std::all_of(parts.begin(), parts.end(), isSafe)) {
    wire_.noteFailure(SmtpStep::Envelope, "an address of the mail cannot be sent");
    return false;
  }

  unsigned delivered = 0;
  bool anyRejected = false;
  for (std::size_t i = 0; i < parts.size(); ++i) {  // grows by what the server postpones
    if (isAborted(call) || (anyRejected && !smtpRset(call))) return false;
    const unsigned acceptedBefore = counters.accepted;
    Envelope postponed;
    const auto send = [&](SmtpTransaction& transaction) {
      return transaction.run(parts[i], text, counters);
    };
    const TransactionResult result = transact(send, options, postponed, call);
    if (result == TransactionResult::Sent) {
      delivered += counters.accepted - acceptedBefore;
      if (postponed.recipientCount() > 0) parts.push_back(std::move(postponed));
    } else if (result == TransactionResult::Rejected) {
      anyRejected = true;
    } else {
      return false;
    }
  }
  const bool sent = delivered > 0 && !(anyRejected && options.allOrNone);
  if (sent) counters.accepted = delivered;
  return sent;
}

bool SmtpConnImpl::verifyRecipients(const Envelope& envelope, Call& call, SendCounters& counters) {
  counters.total += envelope.recipientCount();
  if (!isSafeEnvelope(envelope, {}, call.log) || isAborted(call)) return false;
  Envelope asked = envelope;
  while (asked.recipientCount() > 0) {
    Envelope postponed;
    const auto ask = [&](SmtpTransaction& transaction) {
      return transaction.offerRecipients(asked, counters);
    };
    const TransactionResult result = transact(ask, {}, postponed, call);
    const bool reset = wire_.isOpen() && smtpRset(call);
    if (result != TransactionResult::Sent || !reset) return false;
    asked = std::move(postponed);
  }
  return counters.accepted == counters.total;
}

}  // namespace kelvado
