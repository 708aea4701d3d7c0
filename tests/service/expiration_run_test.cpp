// A pass over small sites: who is skipped, warned, expired, and what the report and the logs say.
#include "service/expiration_run.h"

#include <filesystem>
#include <memory>

#include <gtest/gtest.h>

#include "console/smtp_catcher.h"
#include "platform/code_page.h"
#include "platform/file/ldif_source.h"
#include "platform/file/reg_registry.h"
#include "platform/file/snapshot_directory.h"
#include "tests/support/test_site.h"

namespace {

using service::Expiry;
using test_support::PassRecord;
using test_support::TestSite;

constexpr const char* kReport = "logfiles/norvyn-expiration-report.html";
constexpr const char* kDebug = "logfiles/norvyn-expiration-debug.log";
constexpr const char* kSoon = "logfiles/norvyn-expiring-soon.log";
constexpr const char* kExpiredLog = "logfiles/norvyn-expired-pw.log";

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// A site whose mail goes to a catcher.
class PassTest : public testing::Test {
 protected:
  PassTest() {
    site.policy("DefaultPolicy", 42);
    site.setting("htmllog", 1);
  }
  void startCatcher(const std::vector<std::string>& refused = {}) {
    console::CatcherOptions options;
    options.directory = "mails";
    options.refusedRecipients = refused;
    std::string error;
    ASSERT_TRUE(catcher.start(options, error)) << error;
    site.setting("smtpPort", catcher.port());
  }

  TestSite site;
  console::SmtpCatcher catcher;
};

struct DecisionCase {
  const char* what;
  int age;
  std::vector<std::pair<const char*, std::uint32_t>> settings;
  std::uint32_t emailWarnings;
  const char* emailedText;  // of the upcoming row; null: no row
  Expiry expiry;
};

// Maximum age 42 throughout.
TEST_F(PassTest, DecidesMailAndExpiryByAgeAndSettings) {
  using Settings = std::vector<std::pair<const char*, std::uint32_t>>;
  const Settings days = {{"warning1", 7}, {"warning2", 3}, {"warning3", 1}};
  const DecisionCase cases[] = {
      {"one day before the period", 27, {}, 1, nullptr, Expiry::NotDue},
      {"first day of the period", 28, {}, 1, "yes", Expiry::NotDue},
      {"last day", 41, {}, 1, "yes", Expiry::NotDue},
      {"age equal to the maximum: mailed and expired", 42, {}, 1, nullptr, Expiry::Forced},
      {"on a warning day", 35, days, 1, "yes", Expiry::NotDue},
      {"between warning days", 36, days, 1, "no", Expiry::NotDue},
      {"negative warning days leave interval mode off",
       36,
       {{"warning1", 0xFFFFFFFF}, {"warning2", 0xFFFFFFFF}},
       1,
       "yes",
       Expiry::NotDue},
      {"negative threshold wraps: nobody is in the period",
       36,
       {{"warningThreshold", 0xFFFFFFF0}},
       1,
       nullptr,
       Expiry::NotDue},
      {"negative threshold still expires",
       43,
       {{"warningThreshold", 0xFFFFFFF0}},
       1,
       nullptr,
       Expiry::Forced},
      {"policy without warnings is not looked up", 36, {}, 0, "no", Expiry::NotDue},
      {"report-only mode", 36, {{"reportOnly", 1}}, 1, "no (in ReportOnly mode)", Expiry::NotDue},
      {"report-only mode does not expire",
       50,
       {{"reportOnly", 1}},
       1,
       nullptr,
       Expiry::OnlyReported},
      {"mailed today already", 36, {}, 1, "no", Expiry::NotDue},
  };
  for (const DecisionCase& c : cases) {
    SCOPED_TRACE(c.what);
    TestSite one;
    console::SmtpCatcher mails;
    console::CatcherOptions options;
    options.directory = "mails";
    std::string error;
    ASSERT_TRUE(mails.start(options, error)) << error;
    one.setting("smtpPort", mails.port());
    one.setting("htmllog", 1);
    one.policy("DefaultPolicy", 42, c.emailWarnings);
    for (const auto& [name, number] : c.settings) one.setting(name, number);
    if (contains(c.what, "today")) {
      one.setting("limitEmails", 1);
      one.setNumber(config::kProductKey, "expirationLastRunDay", 5);
    }
    one.user({"walter", c.age});
    const PassRecord record = one.pass();

    const std::string report = one.read(kReport);
    const bool mailed = c.emailedText != nullptr && std::string(c.emailedText) == "yes";
    const bool expiredAndMailed = contains(c.what, "mailed and expired");
    EXPECT_EQ(record.of("walter").expiry, c.expiry);
    EXPECT_EQ(mails.savedFiles().size(), mailed || expiredAndMailed ? 1U : 0U);
    if (c.emailedText == nullptr) {
      EXPECT_FALSE(contains(report, "<td>yes</td>") || contains(report, "<td>no</td>"));
    } else {
      EXPECT_TRUE(contains(report, "<td>" + std::to_string(42 - c.age) + "</td><td>" +
                                       c.emailedText + "</td></tr>\n"))
          << report;
    }
    EXPECT_EQ(contains(report, "PASSWORD EXPIRED"), c.expiry == Expiry::Forced);
    EXPECT_EQ(contains(report, "PASSWORD NOT EXPIRED (Report Only Mode)"),
              c.expiry == Expiry::OnlyReported);
    EXPECT_EQ(contains(one.directoryText(), "pwdLastSet: 0"), c.expiry == Expiry::Forced);
    EXPECT_EQ(one.read(kExpiredLog).empty(), c.expiry != Expiry::Forced);
    // The expiring-soon log holds everybody in the period, expired ones too.
    EXPECT_EQ(contains(one.read(kSoon), "walter"), record.of("walter").inWarningPeriod);
  }
}

TEST_F(PassTest, ScreensAccountsAndClaimsThemForTheFirstPolicy) {
  startCatcher();
  site.policy("Policy1", 30);
  site.policy("Policy2", 30);
  site.user({"twice", 29});
  site.user({"offandnever", 29, "x@site.example", 0x10202});
  site.user({"cannot", 29, "x@site.example", 0x200, "", "", true});
  site.user({"excluded", 29});
  site.user({"AB", 41});
  site.write("pwsentry_pro_policy1_include.txt", "twice\noffandnever\nexcluded\nghost\n");
  site.write("pwsentry_pro_policy1_exclude.txt", "EXCLUDED\n");
  site.write("pwsentry_pro_policy2_include.txt", "twice\r\ncannot\r\nPC01$\r\n");
  const PassRecord record = site.pass();

  // Equal ages: the higher slot comes first.
  EXPECT_EQ(record.of("twice", 2).skipReasons, 0U);
  EXPECT_EQ(record.of("twice", 1).skipReasons, service::kSkipProcessedEarlier);
  EXPECT_EQ(record.of("twice", 0).skipReasons, service::kSkipProcessedEarlier);
  EXPECT_EQ(record.of("offandnever", 1).skipReasons,
            service::kSkipDisabled | service::kSkipNeverExpires);
  EXPECT_EQ(record.of("cannot", 2).skipReasons, service::kSkipCannotChange);
  EXPECT_EQ(record.of("cannot", 0).skipReasons,
            service::kSkipCannotChange | service::kSkipProcessedEarlier);
  EXPECT_EQ(record.of("PC01$", 2).skipReasons, service::kSkipComputerAccount);
  EXPECT_EQ(record.of("AB", 0).skipReasons, service::kSkipNameTooShort);
  // An excluded user stays free for a later policy.
  EXPECT_EQ(record.of("excluded", 1).skipReasons, service::kSkipExcluded);
  EXPECT_EQ(record.of("excluded", 0).skipReasons, 0U);
  // An account that cannot be read keeps the age of the user before.
  EXPECT_FALSE(record.of("ghost", 1).accountFound);
  EXPECT_EQ(record.of("ghost", 1).age, 29U);

  const std::string debug = site.read(kDebug);
  EXPECT_TRUE(contains(debug,
                       "  disabled account: offandnever\n"
                       "  account with non-expiring pw: offandnever\n"));
  EXPECT_EQ(site.read("logfiles/pwexpirationskiplist.txt").substr(0, 56),
            "LIST OF SKIPPED USERS\n  user found in list: twice\n  user");
}

TEST_F(PassTest, ReadsListLinesAsTheyAre) {
  site.policy("Policy1", 30);
  site.user({"lastone", 29});
  site.user({"lastonex", 29});
  site.user({"J\u00fcrgen", 29});
  const std::string longLine(150, 'x');
  site.write("pwsentry_pro_policy1_include.txt",
             longLine + "\nJ\xfcrgen\nJ\xf6rgen\r\n\nlastonex\xff\nlastonex");
  const PassRecord record = site.pass();

  std::vector<std::string> names;
  for (const auto& verdict : record.verdicts) {
    if (verdict.slot != 1) continue;
    names.push_back(platform::utf16ToUtf8(platform::ansiToUtf16(verdict.username)));
  }
  // A read takes 127 characters; the last of each is taken for the line end. Bytes that are not
  // UTF-8 are Windows-1252, so that they stay different names.
  const std::vector<std::string> expected = {std::string(126, 'x'),
                                             std::string(23, 'x'),
                                             "J\u00fcrgen",
                                             "J\u00f6rgen",
                                             "",
                                             "lastonex\u00ff",
                                             "lastone"};
  EXPECT_EQ(names, expected);
  EXPECT_TRUE(record.of(platform::utf16ToAnsi(u"J\u00fcrgen"), 1).accountFound);
}

TEST_F(PassTest, ReportsMailFailureAndGoesOn) {
  startCatcher({"bad@site.example"});
  site.setting("emailAdminReports", 1);
  site.setting("adminEmailAddress", "admin@site.example");
  site.user({"refused", 40, "bad@site.example"});
  site.user({"welcome", 40, "good@site.example"});
  const PassRecord record = site.pass();

  EXPECT_TRUE(record.summary.smtpFailure);
  EXPECT_TRUE(record.of("refused").mailFailed);
  EXPECT_EQ(record.of("welcome").emailedText, "yes");
  EXPECT_TRUE(contains(site.read(kReport), "<td>no (smtp failure)</td>"));
  EXPECT_TRUE(contains(site.read("errors-norvyn-email.xml"), "bad@site.example"));
  EXPECT_EQ(catcher.savedFiles().size(), 2U);  // the warning and the report
  // The day counts as a mailing day.
  EXPECT_EQ(site.registryNumber(config::kProductKey, "expirationLastRunDay"), 5U);
}

TEST_F(PassTest, OnlyReportsWithoutASettingsKeyOrAMailServer) {
  for (const bool keyExists : {false, true}) {
    SCOPED_TRACE(keyExists);
    TestSite bare;
    bare.policy("DefaultPolicy", 42);
    bare.user({"walter", 50});
    bare.writeOut();
    std::string reg =
        "Windows Registry Editor Version 5.00\r\n\r\n"
        "[HKEY_LOCAL_MACHINE\\Software\\Policies\\Kadro\\PwsentryProMPE\\DefaultPolicy]\r\n"
        "\"policyName\"=\"Default\"\r\n\"maxPasswordAge\"=dword:0000002a\r\n";
    if (keyExists) {
      reg +=
          "\r\n[HKEY_LOCAL_MACHINE\\Software\\Policies\\Kadro\\PwsentryProMPE\\PWExpiration]\r\n"
          "\"htmllog\"=dword:00000001\r\n";
    }
    bare.write("site.reg", reg);
    const PassRecord record = bare.pass();
    EXPECT_TRUE(record.summary.reportOnly);
    EXPECT_EQ(record.of("walter").expiry, Expiry::OnlyReported);
    EXPECT_FALSE(contains(bare.directoryText(), "pwdLastSet: 0"));
  }
}

TEST_F(PassTest, TestModeMailsThePlaceholderUserAndOnlyReports) {
  startCatcher();
  site.setting("testEmailOnly", 1);
  site.setting("testEmailAddress", "tester@site.example");
  site.write("NorvynExpirationEmail.txt", "<%username%> has <%daysUntilExpiration%> days");
  site.user({"walter", 50});
  const PassRecord record = site.pass();
  EXPECT_EQ(record.of("walter").expiry, Expiry::OnlyReported);
  ASSERT_EQ(catcher.savedFiles().size(), 1U);
  EXPECT_TRUE(contains(site.read(catcher.savedFiles()[0]), "jdoe-test has 10 days"));
}

TEST_F(PassTest, LengthPoliciesWarnWhenAgingUsersAreMailed) {
  startCatcher();
  site.setting("emailAgingUsers", 1);
  site.setting("minLength2", 20);
  site.setting("maxAge2", 180);
  site.user({"longer", 175});
  site.write("pwsentry_pro_policy12_include.txt", "longer\n");
  site.write("pwsentry_pro_defaultpolicy_exclude.txt", "longer\n");
  const PassRecord record = site.pass();
  EXPECT_EQ(record.of("longer", 12).emailedText, "yes");
  EXPECT_TRUE(contains(site.read(kDebug), "   Email enabled for length based policies.\n"));
}

TEST_F(PassTest, MemberServerEditionTakesItsOwnKeys) {
  const std::string root = config::kPolicyRootMpems;
  site.set("System\\CurrentControlSet\\Control\\ProductOptions", "productType", "\"SERVERNT\"");
  site.set(config::kExpirationKeyMpems, "smtpServer", "\"127.0.0.1\"");
  site.setNumber(config::kExpirationKeyMpems, "warningThreshold", 5);
  site.set(root + "\\Policy1", "policyName", "\"Member policy\"");
  site.setNumber(root + "\\Policy1", "maxPasswordAge", 20);
  site.write("pwsentry_pro_policy1_include.txt", "walter\n");
  site.user({"walter", 16});
  const PassRecord record = site.pass();
  EXPECT_EQ(record.of("walter", 1).maxAge, 20);
  EXPECT_TRUE(record.of("walter", 1).inWarningPeriod);
  // The default policy of this edition does not cover all domain users, so no list is written.
  EXPECT_EQ(site.read("pwsentry_pro_domain_users.txt"), "");
}

TEST_F(PassTest, AnUndefinedPolicyIsLeftOut) {
  const std::string key = std::string(config::kPolicyRootMpe) + "\\Policy3";
  site.setNumber(key, "maxPasswordAge", 10);
  site.set(key, "policyName", "\"x\"");
  site.write("pwsentry_pro_policy3_include.txt", "walter\n");
  site.user({"walter", 11});
  const PassRecord record = site.pass();
  EXPECT_EQ(record.undefinedPolicies, std::vector<std::string>{"Policy3"});
  EXPECT_EQ(record.of("walter").maxAge, 42);
}

TEST_F(PassTest, AnUnreachableDirectoryDoesNotStopThePass) {
  site.write("pwsentry_pro_policy1_include.txt", "walter\n");
  site.policy("Policy1", 14);
  site.writeOut();
  std::filesystem::remove("domain.ldif");
  const PassRecord record = site.pass();
  EXPECT_FALSE(record.summary.directoryBound);
  EXPECT_TRUE(contains(record.summary.directoryError.text, "domain.ldif"));
  const std::string debug = site.read(kDebug);
  EXPECT_TRUE(contains(debug, "Could not bind to the domain."));
  EXPECT_TRUE(contains(debug,
                       "---------------------------\nAD Connection not OK\n"
                       "---------------------------\n"));
  EXPECT_TRUE(contains(site.read(kReport), "<td>walter</td><td>none</td>"));
}

// The debug log of one user, line by line.
TEST_F(PassTest, WritesTheDebugLinesOfAUserInTheirOrder) {
  startCatcher();
  site.setting("warning1", 6);
  site.user({"walter", 36, "walter@site.example"});
  site.pass();
  const std::string debug = site.read(kDebug);
  const std::size_t from = debug.find("timestamp=", debug.find("POLICY ORDER"));
  ASSERT_NE(from, std::string::npos);
  EXPECT_EQ(debug.substr(from),
            "timestamp= 3/05/2026  9:07:03\n"
            "username=walter\n"
            "  user added: walter\n"
            "  listcount: 1\n"
            "  Password age:  36 days, 01:00:00\n"
            "  --BEGIN GETEMAIL\n"
            "    getUserEmail() begin**\n"
            "    get email address\n"
            "    get first name\n"
            "    get last name\n"
            "    getUserEmail() end**\n"
            "  User Object Properties\n"
            "    email: walter@site.example\n"
            "    fname: Given\n"
            "    lname: Surname\n"
            "    username: walter\n"
            "    domain: \n"
            "  --END GETEMAIL\n"
            "  bEmailWarnings: 1  reportOnly: 0  bDisabled: 0  bEmailRunToday: 0"
            "  bEmailUserOK: 1  countdown: 6\n"
            "  countdown: 6\twarning1: 6\twarning2: 0\twarning3: 0\n"
            "  Configured to email users only at warning interval times.\n"
            "  Days before expiration matches a warning interval.\n"
            "  emailUser() - begin\n"
            "    countdown (inside emailUser): 6\n"
            "    szUser: walter\n"
            "    szUserEmail: walter@site.example\n"
            "**No custom email text files found.  Using registry value for custom email body.\n"
            "    user firstname: Given\n"
            "    user lastname: Surname\n"
            "    days until expiration: 6\n"
            "    ..search and replace countdown string done.\n"
            "    expirationLastRunDay set to 5\n"
            "    email sent (to: walter@site.example)\n"
            "  emailUser() - end\n"
            "  user matches a warning interval.\n\n");
}

TEST(PolicyOrder, RisesByAgeAndPutsTheHighestSlotFirstAmongEquals) {
  service::PolicyTable slots;
  slots[0].maxPasswordAge = 90;
  slots[1].maxPasswordAge = 30;
  slots[3].maxPasswordAge = 90;
  slots[5].maxPasswordAge = 10001;  // never found: slot 0 stands in its place
  const auto order = service::policyOrder(slots);
  const std::array<int, service::kPolicySlots> expected = {14, 13, 12, 11, 10, 9, 8, 7,
                                                           6,  4,  2,  1,  3,  0, 0};
  EXPECT_EQ(order, expected);
}

TEST(RunTimes, WaitAndSleep) {
  TestSite site;
  site.setting("expirationServiceInterval", 2);
  site.setNumber(config::kPolicyRootMpems, "expirationServiceDebug", 7);
  site.setting("expirationDelay", 90);
  site.writeOut();
  std::string error;
  const auto registry = platform::RegRegistry::load("site.reg", error);
  ASSERT_TRUE(registry) << error;
  const service::ServiceValues values = service::readServiceValues(*registry);
  EXPECT_EQ(values.intervalMs, 7200000U);
  EXPECT_TRUE(values.debug);

  platform::SnapshotDirectory directory(std::make_unique<platform::LdifSource>("domain.ldif"),
                                        site.clock);
  service::ExpirationRun run({*registry, directory, directory, site.clock}, values, nullptr);
  const struct {
    double uptime;
    std::uint32_t delay;
  } cases[] = {{0, 480000}, {60, 479940}, {479.9, 479520}, {480, 0}, {100000, 0}};
  for (const auto& c : cases) {
    site.clock.uptime = c.uptime;
    run.prepare();
    EXPECT_EQ(run.startDelayMs(), c.delay) << c.uptime;
  }
  EXPECT_EQ(run.sleepMs(), 90000U);  // in seconds, whatever the interval is
}

}  // namespace
