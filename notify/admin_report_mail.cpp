#include "notify/admin_report_mail.h"

#include <cstdio>
#include <string_view>

#include "base/html_to_text.h"
#include "config/pass_files.h"
#include "mail/mime/email_address.h"
#include "mail/mime/kv_email.h"
#include "notify/mail_settings.h"
#include "notify/report_logo.h"
#include "platform/text/text_lines.h"

namespace notify {

namespace {

constexpr const char* kCsvName = "Norvyn-expiration-report.csv";

// The same with commas only. In a quoted name a semicolon is one.
std::string withCommas(std::string list) {
  bool quoted = false;
  for (char& c : list) {
    if (c == '"') quoted = !quoted;
    if (c == ';' && !quoted) c = ',';
  }
  return list;
}

// Empty, or why it cannot be added.
std::string addLogo(kelvado::KvEmail& email, PassMode mode) {
  constexpr const char* kNameInReport = "images/logo.gif";  // the one the report's <img> asks for
  if (mode == PassMode::Dry) {
    const std::string_view logo = reportLogo();
    email.AddRelatedData(kNameInReport, logo.data(), logo.size());
  } else if (!email.AddRelatedFile2("Norvyn-Report-Logo.gif", kNameInReport)) {
    std::printf("%s\n", email.LastErrorText());
    return std::string(config::kLogoFile) + " cannot be read";
  }
  return "";
}

// Empty, or why it cannot be composed.
std::string composeAdminReport(kelvado::KvEmail& email, const config::ExpirationSettings& settings,
                               const RunReport& report, PassMode mode) {
  std::string problem = mailHasLogo(settings) ? addLogo(email, mode) : "";
  if (!problem.empty()) return problem;
  email.AddHeaderField("X-Priority", "1");
  markAutomatic(email, settings);
  email.put_From(settings.emailFromAddress.c_str());
  email.put_Utf8(true);
  for (const std::string& address : adminAddresses(settings.adminEmailAddress)) {
    email.AddTo(address.c_str(), address.c_str());
  }
  email.put_Utf8(false);
  email.put_Subject("Norvyn Password Expiration Report");
  email.SetHtmlBody(report.mailReport().c_str());
  if (settings.emailTextAlternative) {
    email.put_Utf8(true);
    email.AddPlainTextAlternativeBody(base::htmlToText(report.mailReport()).c_str());
    email.put_Utf8(false);
  }
  if (!report.csv().empty()) {
    email.AddDataAttachment(kCsvName, report.csv().data(), report.csv().size());
  }
  return "";
}

}  // namespace

std::vector<std::string> adminAddresses(const std::string& setting) {
  const std::string text = platform::ansiToUtf8(setting);
  if (kelvado::isSendableAddress(text)) return {text};
  std::vector<std::string> addresses;
  for (const kelvado::EmailAddress& one : kelvado::parseAddressList(withCommas(text))) {
    addresses.push_back(one.address);
  }
  return addresses;
}

std::vector<std::string> findAdminAddressProblems(const config::ExpirationSettings& settings) {
  const std::vector<std::string> addresses = adminAddresses(settings.adminEmailAddress);
  std::vector<std::string> problems;
  for (const std::string& address : addresses) {
    if (addresses.size() == 1 || kelvado::isSendableAddress(address)) continue;
    problems.push_back("adminEmailAddress: \"" + platform::utf8ToAnsi(address) +
                       "\" is no address, and gets no report");
  }
  return problems;
}

MailOutcome sendAdminReport(const config::ExpirationSettings& settings, const RunReport& report,
                            PassMode mode, Mailer& mailer) {
  kelvado::KvEmail email;
  const std::string problem = composeAdminReport(email, settings, report, mode);
  if (!problem.empty()) return {MailResult::RefusedForGood, problem};
  return mailer.sendReport(email, settings.adminEmailAddress);
}

}  // namespace notify
