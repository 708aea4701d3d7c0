#include "notify/mailer.h"

#include <algorithm>
#include <utility>

#include "base/format_text.h"
#include "base/html.h"
#include "base/text.h"
#include "base/timestamp.h"
#include "config/pass_files.h"
#include "platform/system/files.h"
#include "platform/text/text_lines.h"

namespace notify {
namespace {

using kelvado::SmtpFailure;
using kelvado::SmtpStep;

// Between two looks at whether the pass is to end.
constexpr std::uint64_t kSleepSliceMs = 500;
constexpr std::uint64_t kUsPerMs = 1000;
constexpr std::uint64_t kUsPerMinute = 60'000'000;

bool isAboutConnection(const SmtpFailure& failure) {
  return failure.timedOut || (failure.step >= SmtpStep::Connect && failure.step <= SmtpStep::Login);
}

MailResult resultOf(const SmtpFailure& failure) {
  if (isAboutConnection(failure)) return MailResult::NoConnection;
  const bool lost = failure.step >= SmtpStep::MailFrom && failure.replyCode == 0;
  return failure.refusedForNow() || lost ? MailResult::RefusedForNow : MailResult::RefusedForGood;
}

MailOutcome outcomeOf(const SmtpFailure& failure) {
  MailOutcome outcome;
  outcome.result = resultOf(failure);
  // Up to MAIL FROM the server does not know whom the mail is for.
  outcome.concernsServer = failure.step != SmtpStep::Envelope &&
                           (failure.step <= SmtpStep::MailFrom || failure.replyCode == 0);
  outcome.mayRetry = outcome.result != MailResult::RefusedForGood && !failure.refusedForGood() &&
                     failure.step != SmtpStep::Certificate;
  std::string reason = kelvado::failureText(failure);
  if (reason.empty()) reason = std::string("see ") + config::kMailErrorFile;
  if (outcome.concernsServer && !failure.server.empty()) {
    reason = failure.server + ": " + reason;
  }
  outcome.reason = platform::utf8ToAnsi(reason);
  return outcome;
}

}  // namespace

Mailer::Mailer(const config::ExpirationSettings& settings, platform::Clock& clock,
               config::Findings& findings, std::unique_ptr<MailTransport> transport,
               StopRequest stopRequested)
    : settings_(settings),
      clock_(clock),
      findings_(findings),
      transport_(std::move(transport)),
      stopRequested_(std::move(stopRequested)),
      lastTicks_(clock.tickCount()) {}

bool Mailer::hasGivenUp() const {
  return settings_.smtpGiveUpAfter != 0 && failuresInRow_ >= settings_.smtpGiveUpAfter;
}

MailOutcome Mailer::notTried() const {
  return {MailResult::NotTried, lastReason_, true, true};
}

void Mailer::allowOneMore() {
  if (hasGivenUp()) failuresInRow_ = settings_.smtpGiveUpAfter - 1;
}

MailOutcome Mailer::sendWarning(kelvado::KvEmail& email, const std::string& recipient) {
  return hasGivenUp() ? notTried() : send(email, recipient);
}

MailOutcome Mailer::sendReport(kelvado::KvEmail& email, const std::string& recipient) {
  MailOutcome outcome = send(email, recipient);
  if (outcome.sent()) {
    for (const std::string& address : transport_->refused()) {
      outcome.refused.push_back(platform::utf8ToAnsi(address));
    }
  }
  return outcome;
}

MailOutcome Mailer::send(kelvado::KvEmail& email, const std::string& recipient) {
  awaitTurn();
  if (transport_->send(email)) {
    failuresInRow_ = 0;
    return {};
  }
  keepError(recipient);
  const SmtpFailure failure = transport_->failure();
  MailOutcome outcome = outcomeOf(failure);
  if (outcome.result == MailResult::NoConnection) {
    ++failuresInRow_;
    lastReason_ = outcome.reason;
  } else if (failure.replyCode != 0) {
    failuresInRow_ = 0;  // it answers
  }
  return outcome;
}

// With a speed limit a mail begins one interval after the one before at the earliest. Counted in
// microseconds, so that a limit of thousands a minute is not rounded; the tick count may wrap
// between two mails.
void Mailer::awaitTurn() {
  const auto advance = [this] {
    const std::uint32_t ticks = clock_.tickCount();
    nowUs_ += std::uint64_t{ticks - lastTicks_} * kUsPerMs;
    lastTicks_ = ticks;
  };
  if (settings_.smtpMaxPerMinute == 0) return;
  advance();
  const std::uint64_t due = beganUs_ + kUsPerMinute / settings_.smtpMaxPerMinute;
  if (beganUs_ != 0 && due > nowUs_) {
    sleep((due - nowUs_ + kUsPerMs - 1) / kUsPerMs);
    advance();
  }
  // What the clock's milliseconds round is not lost; what was idle is not made up for.
  const bool onTime = beganUs_ != 0 && nowUs_ < due + 2 * kUsPerMs;
  beganUs_ = std::max<std::uint64_t>(1, onTime ? due : nowUs_);
}

bool Mailer::sleep(std::uint64_t ms) {
  while (ms != 0) {
    if (stopRequested_ && stopRequested_()) return false;
    const std::uint64_t slice = std::min(ms, kSleepSliceMs);
    clock_.sleep(static_cast<std::uint32_t>(slice));
    ms -= slice;
  }
  return true;
}

// The library's record, with when and for whom in its first lines.
void Mailer::keepError(const std::string& recipient) {
  std::string xml = transport_->errorXml();
  const std::string to = base::loggableLine(platform::ansiToUtf8(recipient));
  const std::string head = "<time>" + base::timestampText(clock_.localTime()) +
                           "</time>\r\n<recipient>" + base::escapeHtml(to) + "</recipient>\r\n";
  const std::size_t rootEnd = xml.find("\r\n");
  xml.insert(rootEnd == std::string::npos ? 0 : rootEnd + 2, head);
  errorIsKept_ = platform::writeWholeFile(config::kMailErrorFile, xml);
  if (errorIsKept_ || errorWasLost_) return;
  errorWasLost_ = true;
  findings_.problem(std::string(config::kMailErrorFile) +
                    " could not be written, so what the mail server said to a mail that failed is "
                    "lost: " +
                    platform::fileErrorText());
}

}  // namespace notify
