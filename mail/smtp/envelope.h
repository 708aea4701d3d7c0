// The addresses of a message for the server: from whom and to whom, in which transactions. Used by
// the session and its transactions.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "base/log_base.h"

namespace kelvado {

// Asked of the server when it offers DSN (RFC 3461); empty ones are not sent.
struct DsnOptions {
  std::string ret;
  std::string envid;
  std::string notify;
};

// Plain addresses, without names and angle brackets, UTF-8.
struct Envelope {
  std::string reversePath;  // empty: the null sender
  std::vector<std::string> to;
  std::vector<std::string> cc;
  std::vector<std::string> bcc;

  unsigned recipientCount() const {
    return static_cast<unsigned>(to.size() + cc.size() + bcc.size());
  }
  // An address that only servers with SMTPUTF8 take (RFC 6531); null when all are ASCII.
  const std::string* firstBeyondAscii() const;
};

// False, with the value in the log, when an address or an option could end or extend its command.
bool isSafeEnvelope(const Envelope& envelope, const DsnOptions& dsn, base::LogBase& log);

// One envelope for each To and Cc recipient, and one for all blind copies together.
std::vector<Envelope> individualEnvelopes(const Envelope& envelope);

// Servers must take 100 recipients in one transaction (RFC 5321 section 4.5.3.1.8), not more.
inline constexpr std::size_t kRecipientsPerTransaction = 100;

// The list in envelopes of at most `size` addresses each.
std::vector<Envelope> listEnvelopes(const std::string& reversePath,
                                    const std::vector<std::string>& addresses, std::size_t size);

// A file with one address a line; blank lines do not count. Empty, logged, when it cannot be read.
std::vector<std::string> readAddressFile(const std::string& path, base::LogBase& log);

}  // namespace kelvado
