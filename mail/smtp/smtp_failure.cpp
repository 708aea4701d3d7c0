#include "mail/smtp/smtp_failure.h"

namespace kelvado {
namespace {

// Empty for the steps whose text says all.
const char* stepName(SmtpStep step) {
  switch (step) {
    case SmtpStep::None:
    case SmtpStep::Preparation:
    case SmtpStep::Connect:
    case SmtpStep::Certificate:
    case SmtpStep::Envelope:
      return "";
    case SmtpStep::Proxy:
      return "HTTP proxy";
    case SmtpStep::Greeting:
      return "greeting";
    case SmtpStep::Hello:
      return "EHLO";
    case SmtpStep::StartTls:
      return "STARTTLS";
    case SmtpStep::TlsHandshake:
      return "TLS handshake";
    case SmtpStep::Login:
      return "login";
    case SmtpStep::Reset:
      return "RSET";
    case SmtpStep::MailFrom:
      return "MAIL FROM";
    case SmtpStep::RcptTo:
      return "RCPT TO";
    case SmtpStep::Data:
      return "DATA";
    case SmtpStep::Text:
      return "message text";
  }
  return "";
}

}  // namespace

std::string failureText(const SmtpFailure& failure) {
  const std::string step = stepName(failure.step);
  if (step.empty()) return failure.text;
  const bool refused = failure.refusedForNow() || failure.refusedForGood();
  if (refused) return step + " refused: " + failure.text;
  if (failure.replyCode != 0) return step + ": unexpected reply: " + failure.text;
  return step + ": " + failure.text;
}

}  // namespace kelvado
