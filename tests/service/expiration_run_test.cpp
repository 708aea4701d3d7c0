// A pass over small sites: who is skipped, warned, expired, and what the mails, the report and the
// logs say; and the sleep between passes.
#include "service/expiration_run.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/text.h"
#include "base/unicode.h"
#include "console/smtp_catcher.h"
#include "platform/directory/ldif/ldif_source.h"
#include "platform/directory/snapshot_directory.h"
#include "platform/registry/file/reg_registry.h"
#include "platform/text/code_page.h"
#include "service/expiration_worker.h"
#include "tests/support/test_site.h"
#include "tests/support/text_file.h"

namespace {

using namespace service;
using namespace notify;
using test_support::TestSite;
using test_support::WatchedPass;
using testing::ElementsAre;

constexpr const char* kReport = "logfiles/norvyn-expiration-report.html";
constexpr const char* kDebug = "logfiles/norvyn-expiration-debug.log";
constexpr const char* kSoon = "logfiles/norvyn-expiring-soon.log";
constexpr const char* kExpiredLog = "logfiles/norvyn-expired-pw.log";
constexpr const char* kLastRunDay = "expirationLastRunDay";

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// Exactly one line, with `part` in it; none when that is empty.
void expectOnly(const std::vector<std::string>& lines, const std::string& part) {
  EXPECT_THAT(lines, testing::SizeIs(part.empty() ? 0 : 1));
  EXPECT_THAT(lines, testing::Each(testing::HasSubstr(part)));
}

// A site with a maximum age of 42 days whose mail goes to a catcher.
struct MailedSite : TestSite {
  MailedSite() {
    console::CatcherOptions options;
    options.directory = "mails";
    options.refusedRecipients = {"bad@site.example"};
    std::string error;
    EXPECT_TRUE(catcher.start(options, error)) << error;
    setting("smtpPort", catcher.port());
    setting("htmllog", 1);
    policy("DefaultPolicy", 42);
  }
  console::SmtpCatcher catcher;
};

TEST(Pass, DecidesMailAndExpiryByAgeAndSettings) {
  using enum Expiry;
  using Settings = std::vector<std::pair<const char*, std::uint32_t>>;
  const Settings days = {{"warning1", 7}, {"warning2", 3}, {"warning3", 1}};
  const Settings negativeDays = {{"warning1", 0xFFFFFFFF}, {"warning2", 0xFFFFFFFF}};
  const Settings negativeThreshold = {{"warningThreshold", 0xFFFFFFF0}};
  const Settings reportOnly = {{"reportOnly", 1}};
  const struct {
    const char* what;
    int age;
    Settings settings;
    std::size_t mails;
    const char* emailedText;  // of the upcoming row; null: no row
    Expiry expiry;
  } cases[] = {
      {"one day before the period", 27, {}, 0, nullptr, NotDue},
      {"first day of the period", 28, {}, 1, "yes", NotDue},
      {"last day", 41, {}, 1, "yes", NotDue},
      {"age equal to the maximum: mailed and expired", 42, {}, 1, nullptr, Forced},
      {"on a warning day", 35, days, 1, "yes", NotDue},
      {"between warning days", 36, days, 0, "no", NotDue},
      {"negative warning days leave interval mode off", 36, negativeDays, 1, "yes", NotDue},
      {"negative threshold: nobody is in the period", 36, negativeThreshold, 0, nullptr, NotDue},
      {"negative threshold still expires", 43, negativeThreshold, 0, nullptr, Forced},
      {"policy without warnings: not looked up", 36, {{"emailWarnings", 0}}, 0, "no", NotDue},
      {"report-only mode", 36, reportOnly, 0, "no (in ReportOnly mode)", NotDue},
      {"report-only mode does not expire", 50, reportOnly, 0, nullptr, OnlyReported},
      {"mailed today already", 36, {{"limitEmails", 1}}, 0, "no", NotDue},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    MailedSite site;
    site.setNumber(config::kProductKey, kLastRunDay, 5);
    for (const auto& [name, number] : c.settings) {
      site.setting(name, number);
      if (name == std::string("emailWarnings")) site.policy("DefaultPolicy", 42, number);
    }
    site.user({"walter", c.age});
    const WatchedPass pass = site.pass();

    const std::string report = site.read(kReport);
    EXPECT_EQ(pass.of("walter").expiry, c.expiry);
    EXPECT_EQ(site.catcher.savedFiles().size(), c.mails);
    if (c.emailedText == nullptr) {
      EXPECT_FALSE(contains(report, "<td>yes</td>") || contains(report, "<td>no</td>"));
    } else {
      EXPECT_TRUE(contains(report, "<td>" + std::to_string(42 - c.age) + "</td><td>" +
                                       c.emailedText + "</td></tr>\n"))
          << report;
    }
    EXPECT_EQ(contains(report, "PASSWORD EXPIRED"), c.expiry == Forced);
    EXPECT_EQ(contains(report, "PASSWORD NOT EXPIRED (Report Only Mode)"),
              c.expiry == OnlyReported);
    EXPECT_EQ(contains(site.directoryText(), "pwdLastSet: 0"), c.expiry == Forced);
    EXPECT_EQ(site.read(kExpiredLog).empty(), c.expiry != Forced);
    const std::string debug = site.read(kDebug);
    EXPECT_EQ(debug.ends_with("\n  Expiring password for user=walter\n  --STAGE 400\n"),
              c.expiry == Forced);
    EXPECT_EQ(contains(debug, "  No match of warning interval.  No email for this user today.\n\n"),
              c.settings == days && c.mails == 0);
    // The expiring-soon log holds everybody in the period, expired ones too.
    EXPECT_EQ(contains(site.read(kSoon), "walter"), pass.of("walter").inWarningPeriod);
  }
}

TEST(Pass, MailsTheTemplateAndFixedWordsOnceThePasswordHasExpired) {
  MailedSite site;
  site.setting("emailFromAddress", "Help Desk <desk@site.example>");
  site.setting("emailSubject", "Change it");
  site.write("NorvynExpirationEmail.html", "<b><%daysUntilExpiration%></b> day for <%username%>");
  const char* expired =
      "\r\n\r\nYour Windows password has expired.\r\n\r\nYou will be prompted to change your "
      "password prior to your next logon.\r\n";
  const std::tuple<int, const char*, const char*> cases[] = {
      {41, "Content-Type: text/html", "<b>1</b> day for user41"},
      {42, "Content-Type: text/plain", expired},
      {45, "Content-Type: text/plain", expired}};
  for (const auto& [age, type, words] : cases) site.user({"user" + std::to_string(age), age});
  site.pass();
  const auto& mails = site.catcher.savedFiles();
  ASSERT_EQ(mails.size(), std::size(cases));
  for (std::size_t i = 0; i < mails.size(); ++i) {
    const auto& [age, type, words] = cases[i];
    const std::string mail = test_support::readBytes(mails[i]);
    for (const char* part : {type, words, "\r\nX-Priority: 1\r\n", "\r\nSubject: Change it\r\n",
                             "\r\nFrom: \"Help Desk\" <desk@site.example>\r\n"}) {
      EXPECT_TRUE(contains(mail, part)) << part << "\n" << mail;
    }
  }
  EXPECT_EQ(site.registryNumber(config::kProductKey, kLastRunDay), 5U);
}

TEST(Pass, ScreensAccountsAndClaimsThemForTheFirstPolicy) {
  MailedSite site;
  site.policy("Policy1", 30);
  site.policy("Policy2", 30);
  site.user({"twice", 29});
  site.user({"offandnever", 29, "x@site.example", 0x10202});
  site.user({"cannot", 29, "x@site.example", 0x200, "", "", true});
  site.user({"excluded", 30});
  site.user({"AB", 41});
  site.write("pwsentry_pro_policy1_include.txt", "twice\noffandnever\nexcluded\nghost\n");
  site.write("pwsentry_pro_policy1_exclude.txt", "EXCLUDED\n");
  site.write("pwsentry_pro_policy2_include.txt", "twice\r\ncannot\r\nPC01$\r\n");
  const WatchedPass pass = site.pass();

  // The debug log says why, in these lines behind the name.
  const std::string debug = site.read(kDebug), earlier = "  account processed earlier.\n";
  const std::tuple<const char*, int, std::uint32_t, std::string> verdicts[] = {
      {"twice", 2, 0, "  user added: twice\n"},  // equal ages: the higher slot comes first
      {"twice", 1, kSkipProcessedEarlier, earlier},
      {"twice", 0, kSkipProcessedEarlier, earlier},
      {"offandnever", 1, kSkipDisabled | kSkipNeverExpires,
       "  disabled account: offandnever\n  account with non-expiring pw: offandnever\n"},
      {"cannot", 2, kSkipCannotChange,
       "  account cannot change pw: cannot\n  user added: cannot\n"},
      {"cannot", 0, kSkipCannotChange | kSkipProcessedEarlier,
       "  account cannot change pw: cannot\n" + earlier},
      {"PC01$", 2, kSkipComputerAccount,
       "  Username contains $ character.  Skipping User.\n  user added: PC01$\n"},
      {"AB", 0, kSkipNameTooShort, earlier},
      {"excluded", 1, kSkipExcluded, " user excluded from policy\n"},
      {"excluded", 0, 0, "  user added: excluded\n"},  // free for a later policy
  };
  for (const auto& [name, slot, reasons, lines] : verdicts) {
    EXPECT_EQ(pass.of(name, slot).skipReasons, reasons) << name << slot;
    EXPECT_TRUE(contains(debug, std::string("\nusername=") + name + "\n" + lines)) << lines;
  }
  // An account that cannot be read keeps the age of the user before, but not his refusal.
  EXPECT_FALSE(pass.of("ghost", 1).accountFound);
  EXPECT_EQ(pass.of("ghost", 1).age, 30U);
  EXPECT_EQ(pass.of("ghost", 1).refusal, "no such account");

  EXPECT_EQ(site.read("logfiles/pwexpirationskiplist.txt").substr(0, 56),
            "LIST OF SKIPPED USERS\n  user found in list: twice\n  user");
}

TEST(Pass, ReportsMailFailureAndGoesOn) {
  MailedSite site;
  site.setting("emailAdminReports", 1);
  site.setting("adminEmailAddress", "admin@site.example");
  site.user({"refused", 40, "bad@site.example"});
  site.user({"welcome", 40, "good@site.example"});
  const WatchedPass pass = site.pass();

  EXPECT_EQ(pass.record.mailsFailed, 1U);
  EXPECT_TRUE(pass.of("refused").mailFailed);
  EXPECT_EQ(pass.of("welcome").emailedText, "yes");
  EXPECT_TRUE(contains(site.read(kReport), "<td>no (smtp failure)</td>"));
  EXPECT_TRUE(contains(site.read("errors-norvyn-email.xml"), "bad@site.example"));
  EXPECT_TRUE(contains(site.read(kDebug),
                       "    emailUser failed. Check c:\\windows\\system32\\errors-norvyn-email.xml "
                       "for more information.\n  emailUser() - end\n"));
  EXPECT_EQ(site.catcher.savedFiles().size(), 2U);  // the warning and the report
  // The day counts as a mailing day.
  EXPECT_EQ(site.registryNumber(config::kProductKey, kLastRunDay), 5U);
}

// Leaves of the registry one policy and these lines.
void keepOnly(MailedSite& site, const std::string& settings) {
  const std::string root = std::string("\n[HKEY_LOCAL_MACHINE\\") + config::kPolicyRootMpe;
  site.writeOut();
  site.write("site.reg", "REGEDIT4" + root + "\\DefaultPolicy]\n\"policyName\"=\"Default\"\n" +
                             "\"maxPasswordAge\"=dword:2a" + root + settings);
}

TEST(Pass, MeetsOneUserOfASpecialSite) {
  using enum Expiry;
  const struct {
    const char* what;
    int age;
    void (*prepare)(MailedSite&);
    int slot;
    Expiry expiry;
    std::size_t mails;
    std::string problem, note;  // a part of the only one; "": there is none
    const char* shown = "";     // in the report, the debug log or a mail
  } cases[] = {
      {"no mail server", 50, [](MailedSite& site) { keepOnly(site, "Other]"); }, 0, OnlyReported, 0,
       "", ""},
      {"no mail server among the settings", 50,
       [](MailedSite& site) { keepOnly(site, "\\PWExpiration]\n\"htmllog\"=dword:1"); }, 0,
       OnlyReported, 0, "", "", "<td>Report Only</td><td>1</td>"},
      {"a text that must be a number", 50,
       [](MailedSite& site) { site.setting("limitEmails", "1"); }, 0, OnlyReported, 0,
       ": the pass only reports", "", "Problems in this run"},
      {"report-only mode as a text", 50, [](MailedSite& site) { site.setting("reportOnly", "1"); },
       0, OnlyReported, 0, ": the pass only reports", "", "Problems in this run"},
      {"test mode mails the placeholder user", 50,
       [](MailedSite& site) {
         site.setting("testEmailOnly", 1);
         site.setting("testEmailAddress", "tester@site.example");
         site.write("NorvynExpirationEmail.txt", "<%username%> has <%daysUntilExpiration%> days");
       },
       0, OnlyReported, 1, "", "", "jdoe-test has 10 days"},
      {"length policies warn when aging users are mailed", 175,
       [](MailedSite& site) {
         site.setting("emailAgingUsers", 1);
         site.setting("minLength2", 20);
         site.setting("maxAge2", 180);
         site.write("pwsentry_pro_policy12_include.txt", "walter\n");
         site.write("pwsentry_pro_defaultpolicy_exclude.txt", "walter\n");
       },
       12, NotDue, 1, "", "", "   Email enabled for length based policies.\n"},
      {"an undefined policy is left out", 11,
       [](MailedSite& site) {
         const std::string key = std::string(config::kPolicyRootMpe) + "\\Policy3";
         site.setNumber(key, "maxPasswordAge", 10);
         site.set(key, "policyName", "\"x\"");
         site.write("pwsentry_pro_policy3_include.txt", "walter\n");
       },
       0, NotDue, 0, "", "Policy3 has a maximum password age"},
      {"an object without an address", 40,
       [](MailedSite& site) {
         site.policy("Policy1", 42);
         site.write("pwsentry_pro_policy1_include.txt", "walter\n");
         site.writeOut();
         std::string ldif = site.directoryText();
         base::replaceAll(ldif, "CN=Person", "CN=Computer");
         site.write("domain.ldif", ldif);
       },
       1, NotDue, 0, "", "the e-mail address of walter could not be looked"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    MailedSite site;
    site.user({"walter", c.age});
    c.prepare(site);
    const WatchedPass pass = site.pass();
    EXPECT_EQ(pass.of("walter", c.slot).expiry, c.expiry);
    EXPECT_EQ(pass.record.reportOnly, c.expiry == OnlyReported);
    EXPECT_FALSE(contains(site.directoryText(), "pwdLastSet: 0"));
    EXPECT_EQ(site.catcher.savedFiles().size(), c.mails);
    expectOnly(pass.problems(), c.problem);
    expectOnly(pass.notes(), c.note);
    std::string seen = site.read(kReport) + site.read(kDebug);
    for (const std::string& mail : site.catcher.savedFiles()) seen += site.read(mail);
    EXPECT_THAT(seen, testing::HasSubstr(c.shown));
  }
}

TEST(Pass, MemberServerEditionTakesItsOwnKeys) {
  MailedSite site;
  const std::string root = config::kPolicyRootMpems;
  site.set("System\\CurrentControlSet\\Control\\ProductOptions", "productType", "\"SERVERNT\"");
  site.set(config::kExpirationKeyMpems, "smtpServer", "\"127.0.0.1\"");
  site.setNumber(config::kExpirationKeyMpems, "warningThreshold", 5);
  site.set(root + "\\Policy1", "policyName", "\"Member policy\"");
  site.setNumber(root + "\\Policy1", "maxPasswordAge", 20);
  site.write("pwsentry_pro_policy1_include.txt", "walter\n");
  site.user({"walter", 16});
  const WatchedPass pass = site.pass();
  EXPECT_EQ(pass.of("walter", 1).maxAge, 20);
  EXPECT_TRUE(pass.of("walter", 1).inWarningPeriod);
  // The default policy of this edition does not cover all domain users, so no list is written.
  EXPECT_EQ(site.read("pwsentry_pro_domain_users.txt"), "");
}

// Nobody is expired because the list could not be written.
TEST(Pass, APolicyWithoutTheListOfTheDomainsUsersIsLeftOut) {
  MailedSite site;
  site.user({"walter", 60});
  std::filesystem::create_directory("pwsentry_pro_domain_users.txt");
  const WatchedPass pass = site.pass();
  EXPECT_THAT(pass.problems(), ElementsAre(testing::HasSubstr("cannot be written")));
  EXPECT_THAT(pass.users, testing::IsEmpty());
}

TEST(Pass, SendsNoMailWithoutWordsWhenATemplateCannotBeUsed) {
  MailedSite site;
  site.user({"walter", 40});
  site.write("NorvynExpirationEmail.html", std::string("<p>\0", 4));
  const WatchedPass pass = site.pass();
  EXPECT_EQ(pass.of("walter").emailedText, "no (smtp failure)");
  EXPECT_THAT(pass.problems(), ElementsAre(testing::HasSubstr("NorvynExpirationEmail.html is no"),
                                           testing::HasSubstr("mail to walter")));
  EXPECT_THAT(site.catcher.savedFiles(), testing::IsEmpty());
  EXPECT_EQ(site.registryNumber(config::kProductKey, kLastRunDay), 0U);
}

// A domain whose users change while a pass is made.
struct ChangingSource : platform::DirectorySource {
  platform::LdifSource file{"domain.ldif"};
  std::optional<std::int64_t> clockOffset;
  platform::AccountResult readResult;      // of a second reading
  std::int64_t now = 0, afterMailing = 0;  // pwdLastSet; 0: as in the file
  std::uint32_t flags = 0x200;

  platform::HResult load(platform::DirectorySnapshot& snapshot,
                         platform::DirectoryError& error) override {
    const platform::HResult status = file.load(snapshot, error);
    snapshot.clockOffset = clockOffset;
    return status;
  }
  platform::AccountResult refresh(platform::DirectoryEntry& entry) override {
    if (!readResult.ok()) return readResult;
    if (now != 0) entry.pwdLastSet = now;
    entry.accountControl = flags;
    now = afterMailing != 0 ? afterMailing : entry.pwdLastSet;
    return {};
  }
  platform::AccountResult expirePassword(const platform::DirectoryEntry& entry) override {
    if (now != 0 && now != entry.pwdLastSet) return {platform::kNetPasswordChanged, "changed"};
    return {};
  }
};

TEST(Pass, MailsAndExpiresNobodyOnDataThatHasChanged) {
  using enum Outcome;
  using Source = ChangingSource;
  static const std::int64_t today = test_support::ManualClock().now;
  static const auto daysAgo = [](int days) { return today - days * test_support::kFileTimeDay; };
  static const platform::AccountResult lost{platform::kNetNoDomainController, "no server"};
  const std::string clock = "the clock of the directory server is ";
  const std::string nobody = ": no password is expired in this pass";
  const struct {
    const char* what;
    int age;
    void (*change)(Source&);
    std::size_t mails;
    Outcome outcome;
    std::string problem = "", note = "";
    std::uint32_t threshold = 14;
  } cases[] = {
      {"unchanged", 50, [](Source&) {}, 1, Expired},
      {"changed since the pass began", 50, [](Source& s) { s.now = today; }, 0, OutsidePeriod},
      {"changed while the mail was on its way", 50, [](Source& s) { s.afterMailing = today; }, 1,
       Warned},
      {"changed, expired without a warning period", 50, [](Source& s) { s.now = daysAgo(20); }, 0,
       OutsidePeriod, "", "", 0xFFFFFFF0},
      {"another old one", 50, [](Source& s) { s.afterMailing = daysAgo(60); }, 1, Expired},
      {"disabled meanwhile", 50, [](Source& s) { s.flags = 0x202; }, 0, Skipped},
      {"server lost", 35, [](Source& s) { s.readResult = lost; }, 0, NotRead,
       "the account of walter could not be read again, so the user was neither mailed nor expired: "
       "no server"},
      {"gone", 50,
       [](Source& s) {
         s.readResult = {platform::kNetUserNotFound, "no such object"};
       },
       0, NotRead, "",
       "the account of walter, in DefaultPolicy (pwsentry_pro_domain_users.txt), could not be "
       "read"},
      {"outside the period: not read again", 27, [](Source& s) { s.readResult = lost; }, 0,
       OutsidePeriod},
      // The clock of the directory server, in seconds ahead.
      {"-300 s", 50, [](Source& s) { s.clockOffset = -300; }, 1, Expired},
      {"301 s", 50, [](Source& s) { s.clockOffset = 301; }, 1, Expired,
       clock + "5 minutes ahead of this machine's"},
      {"-3600 s", 50, [](Source& s) { s.clockOffset = -3600; }, 1, Expired,
       clock + "60 minutes behind this machine's"},
      {"3601 s", 50, [](Source& s) { s.clockOffset = 3601; }, 1, ExpiryWithheld,
       clock + "60 minutes ahead of this machine's" + nobody},
      {"-86400 s", 50, [](Source& s) { s.clockOffset = -86400; }, 1, ExpiryWithheld,
       clock + "1440 minutes behind this machine's" + nobody},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    MailedSite site;
    site.user({"walter", c.age});
    site.setting("warningThreshold", c.threshold);
    const auto lines = [](const std::string& only) {
      return only.empty() ? std::vector<std::string>{} : std::vector{only};
    };
    auto source = std::make_unique<Source>();
    c.change(*source);
    const WatchedPass pass = site.pass({true, 3600000}, std::move(source));
    EXPECT_EQ(outcomeOf(pass.of("walter")), c.outcome);
    EXPECT_EQ(site.catcher.savedFiles().size(), c.mails);
    const std::string report = site.read(kReport);
    EXPECT_EQ(contains(report, "PASSWORD EXPIRED"), c.outcome == Expired);
    EXPECT_EQ(contains(report, "PASSWORD NOT EXPIRED (clocks differ)"),
              c.outcome == ExpiryWithheld);
    EXPECT_EQ(site.read(kExpiredLog).empty(), c.outcome != Expired);
    EXPECT_EQ(pass.problems(), lines(c.problem));
    EXPECT_EQ(pass.notes(), lines(c.note));
  }
}

TEST(Pass, AnUnreachableDirectoryDoesNotStopThePass) {
  MailedSite site;
  site.write("pwsentry_pro_policy1_include.txt", "walter\n");
  site.policy("Policy1", 14);
  site.writeOut();
  std::filesystem::remove("domain.ldif");
  const WatchedPass pass = site.pass();
  EXPECT_FALSE(pass.record.directoryBound);
  const std::string why = "domain.ldif: No such file or directory";
  EXPECT_THAT(
      pass.problems(),
      ElementsAre("pwsentry_pro_domain_users.txt: the users of the domain cannot be listed: " +
                      why + ": the policies for all users of the domain are left out",
                  "could not bind to the domain: " + why));
  const std::string debug = site.read(kDebug), rule(27, '-');
  EXPECT_TRUE(contains(debug, "Could not bind to the domain."));
  EXPECT_TRUE(contains(debug, rule + "\nAD Connection not OK\n" + rule + "\n"));
  EXPECT_TRUE(contains(site.read(kReport), "<td>walter</td><td>none</td>"));
}

// The debug log of one user, line by line.
TEST(Pass, WritesTheDebugLinesOfAUserInTheirOrder) {
  MailedSite site;
  site.setting("warning1", 6);
  site.user({"walter", 36, "walter@site.example"});
  site.pass();
  const std::string debug = site.read(kDebug);
  const std::size_t from = debug.find("timestamp=", debug.find("POLICY ORDER"));
  ASSERT_NE(from, std::string::npos);
  EXPECT_EQ(debug.substr(from), site.read(SERVICE_TEST_DATA "/debug_of_a_user.txt"));
}

TEST(PolicyOrder, RisesByAgeAndPutsTheHighestSlotFirstAmongEquals) {
  PolicyTable slots;
  slots[0].maxPasswordAge = 90;
  slots[1].maxPasswordAge = 30;
  slots[3].maxPasswordAge = 90;
  slots[5].maxPasswordAge = 10001;  // never found: slot 0 stands in its place
  slots[6].maxPasswordAge = 0xFFFFFFFF;
  EXPECT_THAT(policyOrder(slots), ElementsAre(14, 13, 12, 11, 10, 9, 8, 7, 4, 2, 1, 3, 0, 0, 0));
}

TEST(Pass, EndsAfterTheUserInHandWhenToldTo) {
  MailedSite site;
  site.policy("Policy1", 30);
  site.write("pwsentry_pro_policy1_include.txt", "first\nsecond\n");
  site.user({"first", 29});
  site.user({"second", 29});
  int asked = 0;
  site.stopRequested = [&asked] { return ++asked > 15; };  // 13 unused slots, Policy1, first
  const WatchedPass pass = site.pass();
  EXPECT_EQ(pass.users.size(), 1U);
  EXPECT_THAT(pass.problems(), ElementsAre(testing::HasSubstr("told to stop")));
  EXPECT_TRUE(contains(site.read(kReport), "<td>first</td>"));
}

// Notes the sleeps, does something in each, and ends the worker at the third.
struct EndingClock : test_support::ManualClock {
  std::vector<std::uint32_t> sleeps;
  std::function<void(std::size_t)> duringSleep = [](std::size_t) {};
  void sleep(std::uint32_t ms) override {
    sleeps.push_back(ms);
    if (sleeps.size() == 3) throw sleeps.size();
    duringSleep(sleeps.size());
  }
};

// A service over a site: its host, and what it puts into the journal.
struct SiteService {
  explicit SiteService(TestSite& site) {
    site.writeOut();
    std::string error;
    registry = platform::RegRegistry::load("site.reg", error);
    EXPECT_TRUE(registry) << error;
  }
  std::string journal() {
    testing::internal::CaptureStderr();
    EXPECT_ANY_THROW(runForEver({*registry, directory, directory, clock}, values));
    return testing::internal::GetCapturedStderr();
  }

  EndingClock clock;
  ServiceValues values{true, 5400000};
  std::unique_ptr<platform::RegRegistry> registry;
  platform::SnapshotDirectory directory{std::make_unique<platform::LdifSource>("domain.ldif"),
                                        clock};
};

TEST(RunForEver, WaitsForTheMachineThenPassesAndSleeps) {
  TestSite site;
  site.setting("expirationServiceInterval", 2);
  site.setNumber(config::kPolicyRootMpems, "expirationServiceDebug", 7);
  site.setting("expirationDelay", 90);
  // By the seconds that the machine has been up: milliseconds less seconds, or no wait at all; then
  // the delay, in seconds, whatever the interval is.
  const std::pair<double, std::uint32_t> cases[] = {
      {0, 480000}, {60, 479940}, {479.9, 479520}, {480, 90000}, {100000, 90000}};
  for (const auto& [uptime, firstSleep] : cases) {
    SiteService service(site);
    service.values = readServiceValues(*service.registry);
    EXPECT_EQ(service.values.intervalMs, 7200000U);
    EXPECT_TRUE(service.values.debug);
    service.clock.uptime = uptime;
    service.journal();
    EXPECT_THAT(service.clock.sleeps, ElementsAre(firstSleep, 90000U, 90000U)) << uptime;
  }
  EXPECT_NE(site.read(kReport) + site.read(kDebug), "");
  EXPECT_EQ(asMs(0x02000000, 3600000), 0xFFFFFFFEU);  // not what is left of it in 32 bits
}

TEST(RunForEver, SaysInTheJournalWhatEachPassCameTo) {
  const std::string next = "; the next pass is in 90 min\n";
  {
    MailedSite site;
    site.user({"walter", 40});
    SiteService service(site);
    service.clock.duringSleep = [&](std::size_t sleeps) {
      if (sleeps == 1) site.write("site.reg", "REGEDIT4\nnonsense\n");
    };
    const std::string well =
        "pwLapseSvc: pass over 1 line in 1 list, in 0 s: 1 warned; 1 mail sent";
    const std::string journal = service.journal();
    EXPECT_TRUE(journal.starts_with(well + next)) << journal;
    EXPECT_TRUE(contains(journal, "site.reg:2: ")) << journal;
    EXPECT_TRUE(contains(journal, ": the settings are those of before\n" + well + "; 1 problem"));
  }
  {
    // The day of the mailing cannot be written: it is kept for the next pass.
    MailedSite site;
    site.setting("limitEmails", 1);
    site.user({"walter", 40});
    SiteService service(site);
    std::filesystem::create_directory("site.reg.lock");
    const std::string journal = service.journal();
    EXPECT_EQ(site.catcher.savedFiles().size(), 1U);
    EXPECT_TRUE(contains(journal, "FAILED: the day of this mailing")) << journal;
  }
  {
    MailedSite site;
    site.user({"walter", 40});
    SiteService service(site);
    std::filesystem::create_directory("pwsentry_pro_domain_users.txt.lock");
    EXPECT_TRUE(service.journal().starts_with("pwLapseSvc: FAILED: no pass is made without"));
    EXPECT_EQ(site.catcher.savedFiles().size(), 0U);
  }
}

}  // namespace
