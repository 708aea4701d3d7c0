#include "notify/admin_report_mail.h"

#include <cstdio>

#include "config/pass_files.h"
#include "mail/mime/kv_email.h"
#include "notify/mail_settings.h"

namespace notify {

bool sendAdminReport(const config::ExpirationSettings& settings, const std::string& mailReport) {
  kelvado::KvMailMan mailMan;
  if (!mailMan.UnlockComponent(kMailUnlockCode)) return false;
  configureMailMan(mailMan, settings);

  kelvado::KvEmail email;
  // The name on the right is the one the report's <img> asks for.
  if (!email.AddRelatedFile2("Norvyn-Report-Logo.gif", "images/logo.gif")) {
    std::printf("%s\n", email.LastErrorText());
    return false;
  }
  const std::string& address = settings.adminEmailAddress;
  email.AddHeaderField("X-Priority", "1");
  email.put_From(settings.emailFromAddress.c_str());
  email.AddTo(address.c_str(), address.c_str());
  email.put_Subject("Norvyn Password Expiration Report");
  email.SetHtmlBody(mailReport.c_str());

  if (mailMan.SendEmail(email)) return true;
  mailMan.SaveLastError(config::kMailErrorFile);
  return false;
}

}  // namespace notify
