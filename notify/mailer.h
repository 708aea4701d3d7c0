// The mails of one pass: sends them over one transport, says in words why one was not sent, keeps
// to the speed limit, and gives a server up that does not answer. One object a pass, used by its
// thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "config/expiration_settings.h"
#include "config/findings.h"
#include "notify/mail_outcome.h"
#include "notify/mail_transport.h"
#include "platform/system/clock.h"

namespace notify {

class Mailer {
 public:
  using StopRequest = std::function<bool()>;

  // `settings`, `clock` and `findings` are borrowed. `stopRequested` ends a wait early; empty:
  // nothing does.
  Mailer(const config::ExpirationSettings& settings, platform::Clock& clock,
         config::Findings& findings, std::unique_ptr<MailTransport> transport,
         StopRequest stopRequested);

  // A user's mail. Not tried when the server has been given up. `recipient` is for kMailErrorFile,
  // which a failure leaves; where that cannot be written, it is a problem of the pass, once.
  MailOutcome sendWarning(kelvado::KvEmail& email, const std::string& recipient);
  // The administrators', which is tried in any case. Sent when the server took it for one of them.
  MailOutcome sendReport(kelvado::KvEmail& email, const std::string& recipient);

  // Whether kMailErrorFile has what the server said to the last mail that failed.
  bool errorIsKept() const { return errorIsKept_; }
  // So many failures in a row to reach the server as the settings allow.
  bool hasGivenUp() const;
  // What every warning comes to from then on.
  MailOutcome notTried() const;
  // A later round of tries begins: a server that was given up gets one mail more, by which it is
  // given up again or taken back.
  void allowOneMore();
  // Returns early, with false, when somebody wants the pass to end.
  bool sleep(std::uint64_t ms);

 private:
  MailOutcome send(kelvado::KvEmail& email, const std::string& recipient);
  void awaitTurn();
  void keepError(const std::string& recipient);

  const config::ExpirationSettings& settings_;
  platform::Clock& clock_;
  config::Findings& findings_;
  std::unique_ptr<MailTransport> transport_;
  StopRequest stopRequested_;
  std::uint32_t failuresInRow_ = 0;  // to reach the server
  std::string lastReason_;           // of these
  bool errorIsKept_ = false;
  bool errorWasLost_ = false;  // at least once in the pass
  std::uint64_t beganUs_ = 0;  // of the last mail; see awaitTurn
  std::uint32_t lastTicks_ = 0;
  std::uint64_t nowUs_ = 0;
};

}  // namespace notify
