#include "console/site_file.h"

#include <algorithm>

#include "base/format_text.h"
#include "config/editions.h"
#include "config/expiration_settings.h"
#include "platform/text/text_lines.h"

namespace console {
namespace {

class RegText {
 public:
  void key(const std::string& path) { text_ += "\r\n[HKEY_LOCAL_MACHINE\\" + path + "]\r\n"; }
  void number(const char* why, const std::string& name, std::uint32_t value) {
    text_ += base::formatText("; %s\r\n\"%s\"=dword:%08x\r\n", why, name.c_str(), value);
  }
  void words(const char* why, const std::string& name, const std::string& value) {
    if (value.empty()) return;
    std::string escaped;
    for (const char c : platform::ansiToUtf8(value)) {
      if (c == '"' || c == '\\') escaped += '\\';
      escaped += c;
    }
    text_ += std::string("; ") + why + "\r\n\"" + name + "\"=\"" + escaped + "\"\r\n";
  }
  void remark(const char* text) { text_ += std::string("; ") + text + "\r\n"; }
  std::string bytes() const {
    const bool isAnsi = platform::utf8ToAnsi(text_) == text_;
    return isAnsi ? text_ : "\xFF\xFE" + platform::encodeText(text_, true);
  }

 private:
  std::string text_ = "Windows Registry Editor Version 5.00\r\n";
};

}  // namespace

std::string siteFileText(const SiteProposal& site) {
  RegText file;
  const std::uint32_t first = site.warnings.empty()
                                  ? config::kDefaultWarningThreshold
                                  : *std::max_element(site.warnings.begin(), site.warnings.end());
  file.key(std::string(config::kPolicyRootMpe) + "\\DefaultPolicy");
  file.words("the policy of all users of the domain", "policyName", "Everybody");
  file.number(site.usesDirectoryPolicy
                  ? "orders the policies only: the age of each user is the directory's"
                  : "days after which a password has to be changed",
              "maxPasswordAge", site.maxAge);
  if (site.usesDirectoryPolicy) {
    file.number("1: the directory's own policies decide when a password expires",
                "useDirectoryPolicy", 1);
  }
  file.number("1: its users are warned", "emailWarnings", 1);

  file.key(config::kExpirationKeyMpe);
  file.number("1: nobody is mailed or forced; set it to 0 when all is right", "reportOnly",
              site.reportOnly ? 1 : 0);
  file.words("the server that mails are handed to", "smtpServer", site.mailServer);
  if (site.mailUser.empty()) {
    file.remark(
        "where it wants a login: smtpStartTls, smtpUsername, and smtpPasswordFile, a file that");
    file.remark("pwlapse protect-secret FILE writes");
  } else {
    file.number("1: the password goes over TLS only", "smtpStartTls", 1);
    file.words("the login there", "smtpUsername", site.mailUser);
    file.words("its password is the first line of this file", "smtpPasswordFile",
               site.mailPasswordFile);
  }
  file.words("the sender of all mails", "emailFromAddress", site.sender);
  file.words("the subject of the warning", "emailSubject", "Your Windows password expires soon");
  file.words("the text of the warning; a file NorvynExpirationEmail.html or .txt takes its place",
             "emailCustomMsg",
             "Dear <%firstName%> <%lastName%>,\\your password expires in <%daysUntilExpiration%> "
             "day(s).\\To change it, press Ctrl+Alt+Del and choose \"Change a password\".");
  file.words("who gets the report: addresses, with commas", "adminEmailAddress",
             site.administrator);
  file.number("1: the report is mailed", "emailAdminReports", site.administrator.empty() ? 0 : 1);
  file.number("1: the report is kept as a file, too", "htmllog", 1);
  file.number("days before the end at which warnings begin", "warningThreshold", first);
  for (std::size_t i = 0; i < site.warnings.size(); ++i) {
    file.number("a day on which users are mailed", "warning" + std::to_string(i + 1),
                site.warnings[i]);
  }
  const struct {
    const char* name;
    std::uint32_t value;
    const char* why;
  } recommended[] = {
      {"rememberWarnings", 1,
       "1: each warning day is mailed once, and caught up when it was missed"},
      {"smtpRetries", 3, "how often a mail is tried again that the server refuses for now"},
      {"skipUnreadableAccounts", 1, "1: an account that cannot be read is skipped and reported"},
      {"maxExpirations", 100, "passwords that one pass forces to be changed at most"},
      {"expireOnlyNotified", 1, "1: nobody is forced before the mail that says so was accepted"},
  };
  for (const auto& one : recommended) file.number(one.why, one.name, one.value);
  file.words("when the service makes its pass of the day", "expirationServiceTime", "06:00");

  if (site.directoryUri.empty()) return file.bytes();
  file.key(config::kDirectoryKey);
  file.words("the domain controller", "uri", site.directoryUri);
  if (!site.bindUser.empty()) {
    file.words("a login with a password, over TLS", "bindMethod", "simple");
    file.words("the account that reads the domain", "bindUser", site.bindUser);
    file.words("its password is the first line of this file", "bindPasswordFile",
               site.bindPasswordFile);
  }
  file.words("the authority that the controller's certificate is from", "caFile", site.caFile);
  return file.bytes();
}

}  // namespace console
