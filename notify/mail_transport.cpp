#include "notify/mail_transport.h"

#include "notify/mail_settings.h"

namespace notify {
namespace {

class SmtpTransport : public MailTransport {
 public:
  explicit SmtpTransport(const config::ExpirationSettings& settings) {
    mailMan_.UnlockComponent(kMailUnlockCode);
    configureMailMan(mailMan_, settings);
  }

  bool send(kelvado::KvEmail& email) override { return mailMan_.SendEmail(email); }
  kelvado::SmtpFailure failure() override { return mailMan_.get_LastFailure(); }
  std::string errorXml() override {
    mailMan_.put_Utf8(true);
    std::string text = mailMan_.LastErrorText();
    mailMan_.put_Utf8(false);
    return text;
  }

 private:
  kelvado::KvMailMan mailMan_;
};

}  // namespace

std::unique_ptr<MailTransport> makeSmtpTransport(const config::ExpirationSettings& settings) {
  return std::make_unique<SmtpTransport>(settings);
}

}  // namespace notify
