// How a mail leaves a pass: over the mail library's one connection, or a stand-in for it (a pass
// that sends nothing, a test). The mails come composed; what is made of a failure is the Mailer's.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "config/expiration_settings.h"
#include "mail/mime/kv_email.h"
#include "mail/smtp/smtp_failure.h"

namespace notify {

class MailTransport {
 public:
  virtual ~MailTransport() = default;
  // True when the server took the mail. May block for as long as the mail library does.
  virtual bool send(kelvado::KvEmail& email) = 0;
  // The recipients that the server refused of the last mail, in UTF-8. The others got it.
  virtual std::vector<std::string> refused() { return {}; }
  // Why the last send failed.
  virtual kelvado::SmtpFailure failure() = 0;
  // The record of the last send for kMailErrorFile: XML in UTF-8.
  virtual std::string errorXml() = 0;
};

// Makes the transport of one pass, whose settings are borrowed.
using MailTransportMaker =
    std::function<std::unique_ptr<MailTransport>(const config::ExpirationSettings&)>;

// The mail library: one connection, made with the first mail and kept until this is destroyed.
std::unique_ptr<MailTransport> makeSmtpTransport(const config::ExpirationSettings& settings);

}  // namespace notify
