#include "notify/admin_report_mail.h"

#include <cstdio>

#include "config/pass_files.h"
#include "mail/mime/kv_email.h"

namespace notify {

MailOutcome sendAdminReport(const config::ExpirationSettings& settings,
                            const std::string& mailReport, Mailer& mailer) {
  kelvado::KvEmail email;
  // The name on the right is the one the report's <img> asks for.
  if (!email.AddRelatedFile2("Norvyn-Report-Logo.gif", "images/logo.gif")) {
    std::printf("%s\n", email.LastErrorText());
    return {MailResult::RefusedForGood, std::string(config::kLogoFile) + " cannot be read"};
  }
  const std::string& address = settings.adminEmailAddress;
  email.AddHeaderField("X-Priority", "1");
  email.put_From(settings.emailFromAddress.c_str());
  email.AddTo(address.c_str(), address.c_str());
  email.put_Subject("Norvyn Password Expiration Report");
  email.SetHtmlBody(mailReport.c_str());

  return mailer.sendReport(email, address);
}

}  // namespace notify
