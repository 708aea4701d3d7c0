#include "console/demo_site.h"

#include <cstddef>

#include "base/format_text.h"
#include "platform/system/files.h"
#include "platform/text/code_page.h"

namespace console {
namespace {

using base::formatText;

// userAccountControl.
constexpr unsigned kNormal = 0x200;
constexpr unsigned kDisabled = 0x202;
constexpr unsigned kNeverExpires = 0x10200;
constexpr unsigned kWorkstation = 0x1000;

constexpr int kChangeDue = -1;  // SampleUser::age: to be changed at next logon

struct SampleUser {
  const char* logonName;
  const char* firstName;
  const char* lastName;
  const char* mail;
  int age;  // days
  unsigned accountControl = kNormal;
  bool cannotChange = false;
};

// The default policy's maximum age is 90 days, Policy1's 30, that of 20 characters and more 180;
// warnings go out 14, 7 and 1 days before.
constexpr SampleUser kUsers[] = {
    {"anna.adler", "Anna", "Adler", "anna.adler@demo.example", 40},
    {"ben.berg", "Ben", "Berg", "ben.berg@demo.example", 83},
    {"carla.clausen", "Carla", "Clausen", "carla.clausen@demo.example", 80},
    {"dora.dahl", "Dora", "Dahl", "dora.dahl@demo.example", 173},
    {"emil.ernst", "Emil", "Ernst", "emil.ernst@demo.example", 95},
    {"frida.falk", "Frida", "Falk", "frida.falk@demo.example", kChangeDue},
    {"gustav.groth", "Gustav", "Groth", "gustav.groth@demo.example", 29, kDisabled},
    {"hanna.holm", "Hanna", "Holm", "hanna.holm@demo.example", 400, kNeverExpires},
    {"ivan.iversen", "Ivan", "Iversen", "ivan.iversen@demo.example", 200, kNormal, true},
    {"jana.jensen", "Jana", "Jensen", "jana.jensen@demo.example", 89},
    {"karl.kruse", "Karl", "Kruse", "karl.kruse@demo.example", 29},
    {"lena.lund", "Lena", "Lund", "", 83},
    {"zo\u00eb.m\u00fcller", "Zo\u00eb", "M\u00fcller", "zoe.mueller@demo.example", 89},
    {"olaf.brandt", "Olaf", "Brandt", kDemoRefusedAddress, 76},
    {"AB", "Al", "Bo", "ab@demo.example", 89},
    {"PC01$", "", "", "", 89, kWorkstation},
};

constexpr const char* kPolicy1Include = "karl.kruse\ngustav.groth\nPC01$\n";
constexpr const char* kDefaultExclude = "JANA.JENSEN\ndora.dahl\n";
constexpr const char* kLengthPolicyInclude = "dora.dahl\n";

// A security descriptor whose one entry denies SELF the change-password right.
constexpr const char* kDenyChange =
    "AQAEgAAAAAAAAAAAAAAAABQAAAAEADAAAQAAAAYAKAAAAQAAAQAAAFMacqsvHtARmBkAqgBAUpsBAQAAAAAABQoAAAA=";

constexpr const char* kHtmlTemplate =
    "<html><body style=\"font-family:Arial,Helvetica,sans-serif;color:#333333\">\n"
    "<table width=\"560\" cellpadding=\"18\" style=\"border:1px solid #DDDDDD\">\n"
    "<tr><td style=\"background-color:#F26721;color:#FFFFFF;font-size:14pt\">"
    "<b>Your Windows password expires in <%daysUntilExpiration%> day(s)</b></td></tr>\n"
    "<tr><td><p>Dear <%firstName%> <%lastName%>,</p>\n"
    "<p>the password of your account <b>DEMO<%backslash%><%username%></b> expires in "
    "<b><%daysUntilExpiration%></b> day(s).</p>\n"
    "<p>To change it, press Ctrl+Alt+Del and choose <i>Change a password</i>.</p>\n"
    "<p>Your help desk</p></td></tr></table>\n"
    "</body></html>\n";

std::int64_t fileTimeDaysAgo(std::int64_t now, int days) {
  constexpr std::int64_t kHour = 36000000000;  // of 100 ns
  return now - (days * 24 + 1) * kHour;        // an hour past the full day, clear of rounding
}

std::string ldifRecord(const SampleUser& user, std::int64_t now) {
  const bool computer = user.accountControl == kWorkstation;
  const std::string name = user.logonName;
  std::string text = "dn: CN=" + name + (computer ? ",CN=Computers" : ",CN=Users") +
                     ",DC=demo,DC=example\nobjectClass: top\nobjectClass: person\n"
                     "objectClass: user\n";
  if (computer) text += "objectClass: computer\n";
  text += std::string("objectCategory: CN=") + (computer ? "Computer" : "Person") +
          ",CN=Schema,CN=Configuration,DC=demo,DC=example\nsAMAccountName: " + name + "\n";
  const auto attribute = [&text](const char* label, const std::string& value) {
    if (!value.empty()) text += std::string(label) + ": " + value + "\n";
  };
  attribute("givenName", user.firstName);
  attribute("sn", user.lastName);
  attribute("mail", user.mail);
  attribute("userAccountControl", base::formatText("%u", user.accountControl));
  const std::int64_t changed = user.age == kChangeDue ? 0 : fileTimeDaysAgo(now, user.age);
  attribute("pwdLastSet", std::to_string(changed));
  if (user.cannotChange) text += std::string("nTSecurityDescriptor:: ") + kDenyChange + "\n";
  return text + "\n";
}

std::string directoryText(std::int64_t now) {
  std::string text =
      "version: 1\n\n"
      "dn: DC=demo,DC=example\nobjectClass: top\nobjectClass: domainDNS\n"
      "maxPwdAge: -77760000000000\n\n";  // 90 days
  for (const SampleUser& user : kUsers) text += ldifRecord(user, now);
  return text;
}

std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') result += '\\';
    result += c;
  }
  return result + "\"";
}

std::string registryText(std::uint16_t smtpPort) {
  const std::string directoryUri = "ldif:" + platform::absolutePath(kDemoDirectoryFile);
  return "Windows Registry Editor Version 5.00\r\n\r\n"
         "[HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Control\\ProductOptions]\r\n"
         "\"productType\"=\"LanmanNT\"\r\n\r\n"
         "[HKEY_LOCAL_MACHINE\\Software\\Kadro\\PwsentryPro\\Directory]\r\n"
         "\"uri\"=" +
         quoted(directoryUri) +
         "\r\n\r\n"
         "[HKEY_LOCAL_MACHINE\\Software\\Policies\\Kadro\\PwsentryProMPE]\r\n"
         "\"expirationServiceDebug\"=dword:00000001\r\n\r\n"
         "[HKEY_LOCAL_MACHINE\\Software\\Policies\\Kadro\\PwsentryProMPE\\DefaultPolicy]\r\n"
         "\"policyName\"=\"Everybody\"\r\n"
         "\"maxPasswordAge\"=dword:0000005a\r\n"
         "\"emailWarnings\"=dword:00000001\r\n\r\n"
         "[HKEY_LOCAL_MACHINE\\Software\\Policies\\Kadro\\PwsentryProMPE\\Policy1]\r\n"
         "\"policyName\"=\"Administrators\"\r\n"
         "\"maxPasswordAge\"=dword:0000001e\r\n"
         "\"emailWarnings\"=dword:00000001\r\n\r\n"
         "[HKEY_LOCAL_MACHINE\\Software\\Policies\\Kadro\\PwsentryProMPE\\PWExpiration]\r\n"
         "\"smtpServer\"=\"127.0.0.1\"\r\n" +
         base::formatText("\"smtpPort\"=dword:%08x\r\n", static_cast<unsigned>(smtpPort)) +
         "\"emailFromAddress\"=\"Help Desk <helpdesk@demo.example>\"\r\n"
         "\"emailSubject\"=\"Your Windows password will expire soon\"\r\n"
         "\"adminEmailAddress\"=\"administrator@demo.example\"\r\n"
         "\"emailAdminReports\"=dword:00000001\r\n"
         "\"htmllog\"=dword:00000001\r\n"
         "\"warningThreshold\"=dword:0000000e\r\n"
         "\"warning1\"=dword:0000000e\r\n"
         "\"warning2\"=dword:00000007\r\n"
         "\"warning3\"=dword:00000001\r\n"
         "\"emailAgingUsers\"=dword:00000001\r\n"
         "\"minLength1\"=dword:00000014\r\n"
         "\"maxAge1\"=dword:000000b4\r\n";
}

}  // namespace

bool makeDemoSite(platform::Clock& clock, std::uint16_t smtpPort, std::string& error) {
  const struct {
    const char* name;
    std::string content;
  } files[] = {
      {kDemoRegistryFile, registryText(smtpPort)},
      {kDemoDirectoryFile, directoryText(clock.fileTime())},
      {"NorvynExpirationEmail.html", kHtmlTemplate},
      {"pwsentry_pro_policy1_include.txt", kPolicy1Include},
      {"pwsentry_pro_policy11_include.txt", kLengthPolicyInclude},
      {"pwsentry_pro_defaultpolicy_exclude.txt", kDefaultExclude},
  };
  for (const auto& file : files) {
    if (platform::writeWholeFile(file.name, file.content)) continue;
    error = std::string(file.name) + ": cannot be written";
    return false;
  }
  return true;
}

std::vector<ExpectedOutcome> demoExpectations() {
  constexpr int kDefault = 0;
  constexpr int kPolicy1 = 1;
  constexpr int kLength1 = 11;
  return {
      {"karl.kruse", kPolicy1, service::Outcome::Warned},
      {"gustav.groth", kPolicy1, service::Outcome::Skipped, notify::kSkipDisabled},
      {"PC01$", kPolicy1, service::Outcome::Skipped, notify::kSkipComputerAccount},
      {"anna.adler", kDefault, service::Outcome::OutsidePeriod},
      {"ben.berg", kDefault, service::Outcome::Warned},
      {"carla.clausen", kDefault, service::Outcome::NotMailed},
      {"dora.dahl", kDefault, service::Outcome::Skipped, notify::kSkipExcluded},
      {"emil.ernst", kDefault, service::Outcome::Expired},
      {"frida.falk", kDefault, service::Outcome::OutsidePeriod},
      {"hanna.holm", kDefault, service::Outcome::Skipped, notify::kSkipNeverExpires},
      {"ivan.iversen", kDefault, service::Outcome::Skipped, notify::kSkipCannotChange},
      {"jana.jensen", kDefault, service::Outcome::Skipped, notify::kSkipExcluded},
      {"karl.kruse", kDefault, service::Outcome::Skipped, notify::kSkipProcessedEarlier},
      {"lena.lund", kDefault, service::Outcome::NotMailed},
      {platform::utf16ToAnsi(u"zo\u00eb.m\u00fcller"), kDefault, service::Outcome::Warned},
      {"olaf.brandt", kDefault, service::Outcome::MailFailed},
      {"AB", kDefault, service::Outcome::Skipped, notify::kSkipNameTooShort},
      {"dora.dahl", kLength1, service::Outcome::Warned},
  };
}

}  // namespace console
