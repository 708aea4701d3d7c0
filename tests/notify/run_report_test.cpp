// The report as a page, and the list of who expires soon.
#include "notify/run_report.h"

#include <gtest/gtest.h>

#include "base/format_text.h"
#include "config/audit_log.h"
#include "config/pass_files.h"
#include "notify/run_logs.h"
#include "platform/system/digest.h"
#include "platform/system/files.h"
#include "platform/text/code_page.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace {

// The head of both pages is checked by its MD5: a reader gains nothing from a second copy of it.
constexpr std::size_t kHeadSize = 668;
constexpr const char* kHeadDigest = "f70ed880f9406e486b614291667c00ee";

constexpr const char* kTitle =
    "<hr size=1 width=625 align=left><span class=title>Norvyn Password Expiration Report</span>"
    "<hr size=1 width=625 align=left><h3>DATE OF RUN: 3/05/2026  9:07:03</h3>\n"
    "<h3>Settings:</h3>\n<table border=0>\n"
    "<tr><td>Service Interval (in hours)</td><td>24</td></tr>"
    "<tr><td>SMTP Server</td><td>mail&lt;1&gt;</td></tr>"
    "<tr><td>Warning Threshold</td><td>14</td></tr>";

constexpr const char* kSettingsEnd =
    "</td></tr><tr><td>Test Email Only</td><td>0</td></tr>"
    "<tr><td>Email Admin Report</td><td>1</td></tr><tr><td>Limit Emails</td><td>0</td></tr>"
    "<tr><td>Email length-based password aging users</td><td>0</td></tr>"
    "<tr><td>Min Length / Max Age</td><td>20 / 180</td></tr>"
    "<tr><td>Last Email Day</td><td>31</td></tr></table><br>";

constexpr const char* kUpcoming =
    "<h3>Users with upcoming password expirations:</h3>\n"
    "<table><tr><td class=labelRow>Username</td><td class=labelRow>Email</td>"
    "<td class=labelRow>Email Warnings</td><td class=labelRow>pw Age</td>"
    "<td class=labelRow>Max pw Age</td><td class=labelRow>Days until Expiration</td>"
    "<td class=labelRow>Emailed</td></tr>";

std::string digestOf(const std::string& text) {
  std::string digest;
  for (const unsigned byte : platform::md5(text)) digest += base::formatText("%02x", byte);
  return digest;
}

std::string expired(const std::string& heading, const std::string& status) {
  return "<h3>Users with passwords <u>" + heading +
         "</u> during this run:</h3>\n"
         "<table><tr><td class=labelRow>Username</td><td class=labelRow>Email</td>"
         "<td class=labelRow>pw Age</td><td class=labelRow>Max pw Age</td>"
         "<td class=labelRow>Status</td></tr>"
         "<tr><td>J&#246;rg</td><td>none</td><td>42</td><td>42</td><td><font color=#FF0000>" +
         status + "</font></td></tr>\n</table>";
}

TEST(RunReport, IsTheExactPage) {
  test_support::TempDir directory;
  platform::createDirectory("logfiles");
  test_support::ManualClock clock;
  config::ExpirationSettings settings;
  settings.smtpServer = "mail<1>";
  settings.emailAdminReports = true;
  settings.expirationLastRunDay = 31;
  settings.lengthPolicies[1] = {20, 180};
  notify::UserRecord joerg;
  joerg.username = platform::utf16ToAnsi(u"J\u00f6rg");
  joerg.age = 42;
  joerg.maxAge = 42;
  notify::UserRecord oneil = joerg;
  oneil.username = "o'neil";
  oneil.data.email = "a&b@x.example";
  oneil.age = 40;
  oneil.emailWarnings = 1;
  oneil.emailedText = "yes";
  const struct {
    bool reportOnly;
    std::int32_t warning3;  // the others are negative: the interval rows show for one that is not
    std::string expired;
    config::FindingLines problems;
    std::string problemsSection;
  } runs[] = {
      {false, 0, expired("expired", "PASSWORD EXPIRED"), {}, ""},
      {true,
       -3,
       expired("that would be expired", "PASSWORD NOT EXPIRED (Report Only Mode)"),
       {{"no <way>", "second"}, 5},
       "<h3>Problems in this run:</h3>\n<table><tr><td class=labelRow>Problem</td></tr>"
       "<tr><td style=text-align:left>no &lt;way&gt;</td></tr>\n"
       "<tr><td style=text-align:left>second</td></tr>\n"
       "<tr><td style=text-align:left>3 more</td></tr>\n</table>"},
      {false, 5, "", {}, ""},  // nobody: no section
  };
  for (const auto& run : runs) {
    SCOPED_TRACE(run.warning3);
    settings.reportOnly = run.reportOnly;
    settings.warnings = {-1, -2, run.warning3};
    notify::RunReport report;
    report.start(settings, 86400000, clock.local);
    report.addUpcoming(oneil);
    joerg.expiry = run.reportOnly ? notify::Expiry::OnlyReported : notify::Expiry::Refused;
    if (!run.expired.empty()) report.addExpired(joerg);
    report.finish(run.problems);

    std::string sections = kTitle;
    if (run.warning3 >= 0) {
      sections +=
          "<tr><td>Email at specific intervals</td><td>1</td></tr>"
          "<tr><td>Warning 1</td><td>-1</td></tr><tr><td>Warning 2</td><td>-2</td></tr>"
          "<tr><td>Warning 3</td><td>" +
          std::to_string(run.warning3) + "</td></tr>";
    }
    sections += std::string("<tr><td>Report Only</td><td>") + (run.reportOnly ? "1" : "0") +
                kSettingsEnd + kUpcoming +
                "<tr><td>o&#39;neil</td><td>a&amp;b@x.example</td><td>1</td><td>40</td>"
                "<td>42</td><td>2</td><td>yes</td></tr>\n</table><br>" +
                run.expired + run.problemsSection + "</body></html>";
    const std::string head = report.mailReport().substr(0, kHeadSize);
    EXPECT_EQ(digestOf(head), kHeadDigest) << head;
    EXPECT_EQ(report.mailReport(), head + "<body><img src=images/logo.gif>\n" + sections);
    ASSERT_TRUE(report.writeFileReport(run.problems));
    EXPECT_EQ(test_support::readBytes(config::kReportFile),
              head + "<body><img src=../norvyn-report-logo.gif>\n" + sections);
  }
}

TEST(AuditLog, LosesNoLineInSilence) {
  test_support::TempDir directory;
  test_support::ManualClock clock;
  config::Findings findings;
  config::AuditLog log(config::kExpiringSoonLog, findings);
  notify::UserRecord user;
  user.username = "walter";
  user.data.email = "\"w\"@site";
  user.age = 3;
  const std::string line = notify::expiringSoonLine(clock.local, user);
  log.recreate(notify::kExpiringSoonHeading);  // without its folder there is no log
  log.append(line);
  EXPECT_EQ(findings.problems().count, 0U);

  platform::createDirectory("logfiles");
  log.append(line);
  log.recreate(notify::kExpiringSoonHeading);
  platform::appendToFile(config::kExpiringSoonLog, "half a li");
  log.append(line);
  EXPECT_EQ(test_support::readText(config::kExpiringSoonLog),
            "\"Date of Run\",\"Username\",\"Email\",\"Days before expiration\"\nhalf a li\n"
            "\" 3/05/2026  9:07:03\",\"walter\",\"\"\"w\"\"@site\",\"-3\"\n");

  platform::removeFile(config::kExpiringSoonLog);
  platform::createDirectory(config::kExpiringSoonLog);
  log.append(line);
  log.append(line);
  EXPECT_EQ(findings.problems().count, 1U);
}

}  // namespace
