// The report as a page, and the list of who expires soon.
#include "notify/run_report.h"

#include <gtest/gtest.h>

#include "config/pass_files.h"
#include "notify/run_logs.h"
#include "platform/system/files.h"
#include "platform/text/code_page.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace {

constexpr const char* kHead =
    "<html><head><title>Norvyn Password Expiration Report</title>\n"
    "<style type=text/css>\n"
    ".title{color:#222222;font-family:Arial,Helvetica,sans-serif;font-size:12pt;font-weight:bold;}"
    "\n"
    "h3{color:#555555;font-family:Arial,Helvetica,sans-serif;font-size:11pt;font-weight:bold;}\n"
    "table{border-color: #DDDDDD;border-width: 1px 1px 1px 1px;border-style: solid;}\n"
    ".labelRow{color:#FFFFFF;font-family:Arial,Helvetica,sans-serif;font-size:10pt;font-weight:"
    "bold;"
    "padding: 2px 2px 2px 2px;text-align:center;background-color:#F26721;}"
    "td{font-family:Arial,Helvetica,sans-serif;font-size:8pt;font-weight:100;"
    "padding:2px 2px 2px 2px;background-color:#F5F5F5; text-align:center;}\n"
    "</style></head>";

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
  } runs[] = {
      {false, 0, expired("expired", "PASSWORD EXPIRED")},
      {true, -3, expired("that would be expired", "PASSWORD NOT EXPIRED (Report Only Mode)")},
      {false, 5, ""},  // nobody: no section
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
    report.finish();

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
                run.expired + "</body></html>";
    EXPECT_EQ(report.mailReport(),
              std::string(kHead) + "<body><img src=images/logo.gif>\n" + sections);
    ASSERT_TRUE(report.writeFileReport());
    EXPECT_EQ(test_support::readBytes(config::kReportFile),
              std::string(kHead) + "<body><img src=../norvyn-report-logo.gif>\n" + sections);
  }
}

TEST(ExpiringSoonLog, StartsAnewAndDropsLinesWithoutItsFolder) {
  test_support::TempDir directory;
  test_support::ManualClock clock;
  notify::recreateExpiringSoonLog();
  EXPECT_FALSE(platform::fileExists(config::kExpiringSoonLog));

  platform::createDirectory("logfiles");
  notify::appendExpiringSoon(clock.local, "old", "none", 1);
  notify::recreateExpiringSoonLog();
  notify::appendExpiringSoon(clock.local, "walter", "\"w\"@site", -3);
  EXPECT_EQ(test_support::readText(config::kExpiringSoonLog),
            "\"Date of Run\",\"Username\",\"Email\",\"Days before expiration\"\n"
            "\" 3/05/2026  9:07:03\",\"walter\",\"\"\"w\"\"@site\",\"-3\"\n");
}

}  // namespace
