#include "notify/mail_transport.h"

#include <string>
#include <vector>

#include "base/html.h"
#include "notify/access_token.h"
#include "notify/mail_settings.h"
#include "platform/text/text_lines.h"

namespace notify {
namespace {

using kelvado::SmtpFailure;
using kelvado::SmtpStep;

constexpr int kCredentialsInvalid = 535;  // RFC 4954 section 6

class SmtpTransport : public MailTransport {
 public:
  explicit SmtpTransport(const config::ExpirationSettings& settings)
      : takesToken_(wantsAccessToken(settings)), token_(settings, platform::systemClock()) {
    mailMan_.UnlockComponent(kMailUnlockCode);
    loginProblem_ = configureMailMan(mailMan_, settings);
  }

  // A token that was fetched may have been withdrawn: another one is fetched, once.
  bool send(kelvado::KvEmail& email) override {
    if (!takesToken_) return loginProblem_.empty() && mailMan_.SendEmail(email);
    if (!setToken()) return false;
    if (mailMan_.SendEmail(email)) return true;
    const SmtpFailure failure = mailMan_.get_LastFailure();
    const bool refused =
        failure.step == SmtpStep::Login && failure.replyCode == kCredentialsInvalid;
    return refused && token_.renew() && setToken() && mailMan_.SendEmail(email);
  }

  std::vector<std::string> refused() override { return mailMan_.GetBadEmailAddresses(); }

  SmtpFailure failure() override {
    if (loginProblem_.empty()) return mailMan_.get_LastFailure();
    return {SmtpStep::Login, 0, false, platform::ansiToUtf8(loginProblem_), {}};
  }

  std::string errorXml() override {
    if (!loginProblem_.empty()) {
      return "<KelvadoLog>\r\n<error>" + base::escapeHtml(platform::ansiToUtf8(loginProblem_)) +
             "</error>\r\n</KelvadoLog>\r\n";
    }
    mailMan_.put_Utf8(true);
    std::string text = mailMan_.LastErrorText();
    mailMan_.put_Utf8(false);
    return text;
  }

 private:
  // False, with loginProblem_ set, when there is none.
  bool setToken() {
    mailMan_.put_OAuth2AccessToken(token_.current(loginProblem_).c_str());
    return loginProblem_.empty();
  }

  kelvado::KvMailMan mailMan_;
  const bool takesToken_;
  AccessToken token_;
  std::string loginProblem_;  // why there is no password or token to log in with; empty: there is,
                              // or none is needed
};

}  // namespace

std::unique_ptr<MailTransport> makeSmtpTransport(const config::ExpirationSettings& settings) {
  return std::make_unique<SmtpTransport>(settings);
}

}  // namespace notify
