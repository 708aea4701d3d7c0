#include "notify/mail_settings.h"

#include "notify/access_token.h"

namespace notify {

std::string configureMailMan(kelvado::KvMailMan& mailMan,
                             const config::ExpirationSettings& settings) {
  mailMan.put_SmtpHost(settings.smtpServer.c_str());
  // Set whether empty or not: the library takes empty ones for "no authentication".
  mailMan.put_SmtpUsername(settings.smtpUsername.c_str());
  std::string problem;
  const bool hasFile = !settings.smtpPasswordFile.empty() && !wantsAccessToken(settings);
  const std::string password =
      hasFile ? readSecret("smtpPasswordFile", settings.smtpPasswordFile, problem)
              : settings.smtpPassword;
  mailMan.put_SmtpPassword(password.c_str());
  if (settings.smtpPort != 0) mailMan.put_SmtpPort(static_cast<int>(settings.smtpPort));
  mailMan.put_SmtpSsl(settings.smtpSsl);
  mailMan.put_StartTLS(settings.smtpStartTls);
  mailMan.put_SmtpAuthMethod(settings.smtpAuthMethod.c_str());
  mailMan.put_HeloHostname(settings.smtpHeloHostname.c_str());
  mailMan.put_RequireVerifiedCertificate(settings.smtpRequireVerifiedCertificate);
  return problem;
}

void markAutomatic(kelvado::KvEmail& email, const config::ExpirationSettings& settings) {
  if (settings.autoSubmitted != 0) email.AddHeaderField("Auto-Submitted", "auto-generated");
}

}  // namespace notify
