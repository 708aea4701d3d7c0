#include "notify/run_report.h"

#include <gtest/gtest.h>

#include "platform/files.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_dir.h"

namespace {

constexpr const char* kHead =
    "<html><head><title>Norvyn Password Expiration Report</title>\n"
    "<style type=text/css>\n"
    ".title{color:#222222;font-family:Arial,Helvetica,sans-serif;font-size:12pt;font-weight:bold;}\n"
    "h3{color:#555555;font-family:Arial,Helvetica,sans-serif;font-size:11pt;font-weight:bold;}\n"
    "table{border-color: #DDDDDD;border-width: 1px 1px 1px 1px;border-style: solid;}\n"
    ".labelRow{color:#FFFFFF;font-family:Arial,Helvetica,sans-serif;font-size:10pt;font-weight:bold;"
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
    "<tr><td>Report Only</td><td>0</td></tr><tr><td>Test Email Only</td><td>0</td></tr>"
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

constexpr const char* kExpired =
    "<h3>Users with passwords <u>expired</u> during this run:</h3>\n"
    "<table><tr><td class=labelRow>Username</td><td class=labelRow>Email</td>"
    "<td class=labelRow>pw Age</td><td class=labelRow>Max pw Age</td>"
    "<td class=labelRow>Status</td></tr>";

config::ExpirationSettings sampleSettings() {
  config::ExpirationSettings settings;
  settings.smtpServer = "mail<1>";
  settings.emailAdminReports = true;
  settings.expirationLastRunDay = 31;
  settings.lengthPolicies[1] = {20, 180};
  return settings;
}

TEST(RunReport, IsTheExactPage) {
  test_support::TempDir directory;
  platform::createDirectory("logfiles");
  test_support::ManualClock clock;
  notify::RunReport report;
  for (const bool anyExpired : {true, false}) {  // the second run begins with empty streams
    SCOPED_TRACE(anyExpired);
    report.start(sampleSettings(), 86400000, clock.local);
    report.addUpcoming({"o'neil", "a&b@x.example", 40, 42}, 1, "yes");
    if (anyExpired) report.addExpired({"J\u00f6rg", "none", 42, 42});
    report.finish(anyExpired ? 1 : 0);

    const std::string sections =
        std::string(kTitle) +
        "<tr><td>Email at specific intervals</td><td>1</td></tr>"
        "<tr><td>Warning 1</td><td>0</td></tr><tr><td>Warning 2</td><td>0</td></tr>"
        "<tr><td>Warning 3</td><td>0</td></tr>" +
        kSettingsEnd + kUpcoming +
        "<tr><td>o&#39;neil</td><td>a&amp;b@x.example</td><td>1</td><td>40</td><td>42</td>"
        "<td>2</td><td>yes</td></tr>\n</table><br>" +
        (anyExpired ? std::string(kExpired) +
                          "<tr><td>J&#246;rg</td><td>none</td><td>42</td><td>42</td>"
                          "<td><font color=#FF0000>PASSWORD EXPIRED</font></td></tr>\n</table>"
                    : std::string()) +
        "</body></html>";
    EXPECT_EQ(report.mailReport(),
              std::string(kHead) + "<body><img src=images/logo.gif>\n" + sections);
    ASSERT_TRUE(report.writeFileReport());
    std::string file;
    platform::readWholeFile(notify::kReportFile, file);
    EXPECT_EQ(file, std::string(kHead) + "<body><img src=../norvyn-report-logo.gif>\n" + sections);
  }
}

TEST(RunReport, LeavesTheIntervalRowsOutOnlyWhenAllAreNegative) {
  const struct {
    std::array<std::int32_t, 3> warnings;
    bool shown;
  } cases[] = {{{0, 0, 0}, true}, {{-1, -1, 5}, true}, {{-1, -2, -3}, false}};
  for (const auto& c : cases) {
    config::ExpirationSettings settings;
    settings.warnings = c.warnings;
    notify::RunReport report;
    report.start(settings, 3600000, {});
    report.finish(0);
    EXPECT_EQ(report.mailReport().find("specific intervals") != std::string::npos, c.shown);
    EXPECT_EQ(report.mailReport().find("Warning 3") != std::string::npos, c.shown);
  }
}

TEST(RunReport, SaysInReportOnlyModeWhatWouldBe) {
  config::ExpirationSettings settings;
  settings.reportOnly = true;
  notify::RunReport report;
  report.start(settings, 3600000, {});
  report.addNotExpired({"walter", "w@x.example", 50, 42});
  report.finish(1);
  EXPECT_NE(report.mailReport().find(
                "<h3>Users with passwords <u>that would be expired</u> during this run:</h3>\n"),
            std::string::npos);
  EXPECT_NE(report.mailReport().find(
                "<tr><td>walter</td><td>w@x.example</td><td>50</td><td>42</td><td>"
                "<font color=#FF0000>PASSWORD NOT EXPIRED (Report Only Mode)</font></td></tr>\n"),
            std::string::npos);
}

TEST(ReportLogo, IsAWholeGif) {
  test_support::TempDir directory;
  ASSERT_TRUE(notify::writeReportLogo());
  std::string gif;
  ASSERT_TRUE(platform::readWholeFile("norvyn-report-logo.gif", gif));
  EXPECT_EQ(gif.substr(0, 6), "GIF89a");
  EXPECT_EQ(gif.back(), ';');
}

}  // namespace
