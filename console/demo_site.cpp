#include "console/demo_site.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "base/format_text.h"
#include "console/sample_directory.h"
#include "platform/system/files.h"
#include "platform/text/text_lines.h"

namespace console {
namespace {

// userAccountControl.
constexpr std::uint32_t kNormal = 0x200;
constexpr std::uint32_t kDisabled = 0x202;
constexpr std::uint32_t kNeverExpires = 0x10200;
constexpr std::uint32_t kWorkstation = 0x1000;

constexpr int kMaximumAge = 90;  // of the domain, in days

// One of the users has letters beyond ASCII: the first of these that the ANSI code page can write.
// The Japanese one has backslashes among its bytes in code page 932.
SampleUser userBeyondAscii() {
  SampleUser users[] = {
      {"zo\u00eb.m\u00fcller", 89, "zoe.mueller@demo.example", kNormal, "Zo\u00eb", "M\u00fcller"},
      {"\u30bd\u30d5\u30a3.\u8868", 89, "sofi@demo.example", kNormal, "\u30bd\u30d5\u30a3",
       "\u8868"},
      {"\u0437\u043e\u044f.\u0431\u0435\u0440\u0433", 89, "zoya@demo.example", kNormal,
       "\u0417\u043e\u044f", "\u0411\u0435\u0440\u0433"},
      {"zoe.mueller", 89, "zoe.mueller@demo.example", kNormal, "Zoe", "Mueller"},
  };
  return *std::find_if(std::begin(users), std::end(users) - 1, [](const SampleUser& user) {
    return platform::ansiToUtf8(platform::utf8ToAnsi(user.logonName)) == user.logonName;
  });
}

// The default policy's maximum age is 90 days, Policy1's 30, that of 20 characters and more 180;
// warnings go out 14, 7 and 1 days before.
std::vector<SampleUser> users() {
  return {
      {"anna.adler", 40, "anna.adler@demo.example", kNormal, "Anna", "Adler"},
      {"ben.berg", 83, "ben.berg@demo.example", kNormal, "Ben", "Berg"},
      {"carla.clausen", 80, "carla.clausen@demo.example", kNormal, "Carla", "Clausen"},
      {"dora.dahl", 173, "dora.dahl@demo.example", kNormal, "Dora", "Dahl"},
      {"emil.ernst", 95, "emil.ernst@demo.example", kNormal, "Emil", "Ernst"},
      {"frida.falk", SampleUser::kChangeDue, "frida.falk@demo.example", kNormal, "Frida", "Falk"},
      {"gustav.groth", 29, "gustav.groth@demo.example", kDisabled, "Gustav", "Groth"},
      {"hanna.holm", 400, "hanna.holm@demo.example", kNeverExpires, "Hanna", "Holm"},
      {"ivan.iversen", 200, "ivan.iversen@demo.example", kNormal, "Ivan", "Iversen", true},
      {"jana.jensen", 89, "jana.jensen@demo.example", kNormal, "Jana", "Jensen"},
      {"karl.kruse", 29, "karl.kruse@demo.example", kNormal, "Karl", "Kruse"},
      {"lena.lund", 83, "", kNormal, "Lena", "Lund"},
      userBeyondAscii(),
      {"olaf.brandt", 76, kDemoRefusedAddress, kNormal, "Olaf", "Brandt"},
      {"AB", 89, "ab@demo.example", kNormal, "Al", "Bo"},
      {"PC01$", 89, "", kWorkstation, "", ""},
  };
}

constexpr const char* kPolicy1Include = "karl.kruse\ngustav.groth\nPC01$\n";
constexpr const char* kDefaultExclude = "JANA.JENSEN\ndora.dahl\n";
constexpr const char* kLengthPolicyInclude = "dora.dahl\n";

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
         quoted(platform::ansiToUtf8(directoryUri)) +
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
      {kDemoDirectoryFile,
       sampleDirectory("DC=demo,DC=example", kMaximumAge, users(), clock.fileTime())},
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
      {platform::utf8ToAnsi(userBeyondAscii().logonName), kDefault, service::Outcome::Warned},
      {"olaf.brandt", kDefault, service::Outcome::MailFailed},
      {"AB", kDefault, service::Outcome::Skipped, notify::kSkipNameTooShort},
      {"dora.dahl", kLength1, service::Outcome::Warned},
  };
}

}  // namespace console
