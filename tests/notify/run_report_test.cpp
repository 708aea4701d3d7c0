// The report as a page and as CSV, who gets it, and the list of who expires soon.
#include "notify/run_report.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "config/audit_log.h"
#include "config/pass_files.h"
#include "notify/admin_report_mail.h"
#include "notify/run_logs.h"
#include "platform/system/files.h"
#include "platform/text/code_page.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace {

// The pages are files beside this one, as they go into the mail.
TEST(RunReport, IsTheExactPage) {
  config::ExpirationSettings settings;
  settings.smtpServer = "mail<1>";
  settings.emailAdminReports = true;
  settings.adminReportCsv = true;
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
  using enum notify::Expiry;
  const std::string kUpcoming = "o'neil,a&b@x.example,1,40,42,2,yes,\r\n";
  const std::string kExpired = "J\xC3\xB6rg,none,0,42,42,0,no,";
  const struct {
    std::string page;
    bool reportOnly;
    std::int32_t warning3;  // the others are negative: the interval rows show for one that is not
    notify::Expiry expiry;
    config::FindingLines problems;
    std::string csv;  // below its headings
  } runs[] = {
      {"report_expired.html", false, 0, Refused, {}, kUpcoming + kExpired + "PASSWORD EXPIRED\r\n"},
      {"report_only.html",
       true,
       -3,
       OnlyReported,
       {{"no <way>", "second"}, 5},
       kUpcoming + kExpired + "PASSWORD NOT EXPIRED (Report Only Mode)\r\n"},
      {"report_nobody_expired.html", false, 5, NotDue, {}, kUpcoming},
  };
  for (const auto& run : runs) {
    SCOPED_TRACE(run.page);
    std::string page = test_support::readText(NOTIFY_TEST_DATA "/" + run.page);
    test_support::TempDir directory;
    platform::createDirectory("logfiles");
    settings.reportOnly = run.reportOnly;
    settings.warnings = {-1, -2, run.warning3};
    notify::RunReport report;
    report.start(settings, 86400000, test_support::ManualClock().local);
    // The expired row comes first, and waits for its words.
    const notify::RunReport::Row held = report.hold(notify::RunReport::Table::Expired);
    report.addUpcoming(oneil);
    joerg.expiry = run.expiry;
    if (run.expiry != NotDue) report.fill(held, joerg);
    report.finish(run.problems);
    EXPECT_EQ(report.mailReport(), page);
    EXPECT_EQ(report.csv(),
              "\xEF\xBB\xBFuser,address,emailWarnings,age,maximumAge,daysLeft,emailed,status\r\n" +
                  run.csv);
    ASSERT_TRUE(report.writeFileReport(run.problems));
    EXPECT_EQ(base::replaceAll(page, "images/logo.gif", "../norvyn-report-logo.gif"), 1);
    EXPECT_EQ(test_support::readBytes(config::kReportFile), page);
  }
}

TEST(AdminAddresses, AreSplitWhereOneEnds) {
  using Addresses = std::vector<std::string>;
  const std::pair<const char*, Addresses> lists[] = {
      {"a@x.example", {"a@x.example"}},
      {"a@x.example, b@x.example;c@x.example ;", {"a@x.example", "b@x.example", "c@x.example"}},
      {"\"Doe; Jane, IT\" <a@x.example>; b@x.example", {"a@x.example", "b@x.example"}},
      {"\"semi;colon\"@x.example", {"\"semi;colon\"@x.example"}},
      {"C=us;A=b;O=c;S=d", {"C=us;A=b;O=c;S=d"}},
      {"nobody", {"nobody"}},
      {"", {}},
  };
  for (const auto& [text, expected] : lists) {
    EXPECT_EQ(notify::adminAddresses(text), expected) << text;
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
