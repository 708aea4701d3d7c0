// What became of one mail that was handed to the Mailer. A value.
#pragma once

#include <string>
#include <vector>

namespace notify {

enum class MailResult {
  Sent,
  RefusedForNow,   // 4xx, or the connection was lost
  RefusedForGood,  // also what cannot be sent at all
  NoConnection,    // connecting, greeting, TLS or login failed, or the server was silent
  NotTried,        // the server had been given up
};

struct MailOutcome {
  MailResult result = MailResult::Sent;
  std::string reason;           // when it was not sent: one line, in the ANSI code page, no secret
  bool concernsServer = false;  // the reason is not about this mail
  bool mayRetry = false;        // the same mail may be taken later
  // Of a mail that was sent: the recipients that the server refused, in the ANSI code page.
  std::vector<std::string> refused{};

  bool sent() const { return result == MailResult::Sent; }
};

}  // namespace notify
