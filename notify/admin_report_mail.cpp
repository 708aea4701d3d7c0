#include "notify/admin_report_mail.h"

#include <cstdio>
#include <string_view>

#include "config/pass_files.h"
#include "mail/mime/kv_email.h"
#include "notify/report_logo.h"

namespace notify {

namespace {

// Empty, or why it cannot be composed.
std::string composeAdminReport(kelvado::KvEmail& email, const config::ExpirationSettings& settings,
                               const std::string& mailReport, PassMode mode) {
  // The name on the right is the one the report's <img> asks for.
  constexpr const char* kNameInReport = "images/logo.gif";
  if (mode == PassMode::Dry) {
    const std::string_view logo = reportLogo();
    email.AddRelatedData(kNameInReport, logo.data(), logo.size());
  } else if (!email.AddRelatedFile2("Norvyn-Report-Logo.gif", kNameInReport)) {
    std::printf("%s\n", email.LastErrorText());
    return std::string(config::kLogoFile) + " cannot be read";
  }
  const std::string& address = settings.adminEmailAddress;
  email.AddHeaderField("X-Priority", "1");
  email.put_From(settings.emailFromAddress.c_str());
  email.AddTo(address.c_str(), address.c_str());
  email.put_Subject("Norvyn Password Expiration Report");
  email.SetHtmlBody(mailReport.c_str());
  return "";
}

}  // namespace

MailOutcome sendAdminReport(const config::ExpirationSettings& settings,
                            const std::string& mailReport, PassMode mode, Mailer& mailer) {
  kelvado::KvEmail email;
  const std::string problem = composeAdminReport(email, settings, mailReport, mode);
  if (!problem.empty()) return {MailResult::RefusedForGood, problem};
  return mailer.sendReport(email, settings.adminEmailAddress);
}

}  // namespace notify
