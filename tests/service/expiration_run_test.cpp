// A pass over small sites: who is skipped, warned, expired, and what the mails, the report and the
// logs say; and the sleep between passes.
#include "service/expiration_run.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/format_text.h"
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
                             "\r\nAuto-Submitted: auto-generated\r\n",
                             "\r\nFrom: \"Help Desk\" <desk@site.example>\r\n"}) {
      EXPECT_TRUE(contains(mail, part)) << part << "\n" << mail;
    }
  }
  EXPECT_EQ(site.registryNumber(config::kProductKey, kLastRunDay), 5U);
}

// Leaves of the registry one policy and these lines.
void keepOnly(MailedSite& site, const std::string& settings) {
  const std::string root = std::string("\n[HKEY_LOCAL_MACHINE\\") + config::kPolicyRootMpe;
  site.writeOut();
  site.write("site.reg", "REGEDIT4" + root + "\\DefaultPolicy]\n\"policyName\"=\"Default\"\n" +
                             "\"maxPasswordAge\"=dword:2a" + root + settings);
}

// What a pass came to: its users in their order, its findings, the mails, the report's tables, and
// the debug log from `debugFrom` on with the list of skipped users.
std::string outcomeText(MailedSite& site, const WatchedPass& pass, const char* debugFrom) {
  std::string text = base::formatText(
      "report only %d, bound %d, mails failed %d, mailed on day %u, list of all users %d\n",
      static_cast<int>(pass.record.reportOnly), static_cast<int>(pass.record.directoryBound),
      static_cast<int>(pass.record.mails.failed),
      site.registryNumber(config::kProductKey, kLastRunDay),
      static_cast<int>(!site.read("pwsentry_pro_domain_users.txt").empty()));
  for (const UserRecord& user : pass.users) {
    text += base::formatText(
        "%s in slot %d: %s; age %u of %d, found %d, in period %d, mailed \"%s\", refusal \"%s\"\n",
        user.username.c_str(), user.slot, outcomeReason(user).c_str(), user.age, user.maxAge,
        static_cast<int>(user.accountFound), static_cast<int>(user.inWarningPeriod),
        user.emailedText.c_str(), user.refusal.c_str());
  }
  for (const std::string& problem : pass.problems()) text += "problem: " + problem + '\n';
  for (const std::string& note : pass.notes()) text += "note: " + note + '\n';
  for (const std::string& file : site.catcher.savedFiles()) {
    const std::string mail = site.read(file);
    const bool isReport = contains(mail, "multipart");  // with random boundaries
    text += "mail: " + (isReport ? "the report\n" : mail.substr(mail.find("\n\n") + 2));
  }
  const std::string report = site.read(kReport), log = site.read(kDebug);
  const std::size_t tables = report.find("<h3>Users with");
  if (tables != std::string::npos) text += report.substr(tables) + '\n';
  if (debugFrom == nullptr) return text;
  return text + log.substr(log.find(debugFrom)) + site.read("logfiles/pwexpirationskiplist.txt");
}

// Each site has a user walter; passes.txt has what its pass comes to.
TEST(Pass, ComesToWhatTheFileSays) {
  const struct {
    const char* what;
    int age;  // of walter's password
    void (*prepare)(MailedSite&);
    const char* debugFrom = nullptr;
  } cases[] = {
      {"no mail server", 50, [](MailedSite& site) { keepOnly(site, "Other]"); }},
      {"no mail server among the settings", 50,
       [](MailedSite& site) { keepOnly(site, "\\PWExpiration]\n\"htmllog\"=dword:1"); }},
      {"a text that must be a number", 50,
       [](MailedSite& site) { site.setting("limitEmails", "1"); }},
      {"report-only mode as a text", 50, [](MailedSite& site) { site.setting("reportOnly", "1"); }},
      {"test mode mails the placeholder user", 50,
       [](MailedSite& site) {
         site.setting("testEmailOnly", 1);
         site.setting("testEmailAddress", "tester@site.example");
         site.write("NorvynExpirationEmail.txt", "<%username%> has <%daysUntilExpiration%> days");
       }},
      {"length policies warn when aging users are mailed", 175,
       [](MailedSite& site) {
         site.setting("emailAgingUsers", 1);
         site.setting("minLength2", 20);
         site.setting("maxAge2", 180);
         site.write("pwsentry_pro_policy12_include.txt", "walter\n");
         site.write("pwsentry_pro_defaultpolicy_exclude.txt", "walter\n");
       },
       "   Email enabled for"},
      {"an undefined policy is left out", 11,
       [](MailedSite& site) {
         const std::string key = std::string(config::kPolicyRootMpe) + "\\Policy3";
         site.setNumber(key, "maxPasswordAge", 10);
         site.set(key, "policyName", "\"x\"");
         site.write("pwsentry_pro_policy3_include.txt", "walter\n");
       }},
      {"the address of an object that is no person", 40,
       [](MailedSite& site) {
         site.policy("Policy1", 42);
         site.write("pwsentry_pro_policy1_include.txt", "walter\n");
         site.writeOut();
         std::string ldif = site.directoryText();
         base::replaceAll(ldif, "CN=Person", "CN=Computer");
         site.write("domain.ldif", ldif);
       }},
      // Its default policy does not cover all users of the domain.
      {"the member-server edition takes its own keys", 16,
       [](MailedSite& site) {
         const std::string root = config::kPolicyRootMpems;
         site.set("System\\CurrentControlSet\\Control\\ProductOptions", "productType",
                  "\"SERVERNT\"");
         site.set(config::kExpirationKeyMpems, "smtpServer", "\"127.0.0.1\"");
         site.setNumber(config::kExpirationKeyMpems, "warningThreshold", 5);
         site.set(root + "\\Policy1", "policyName", "\"Member policy\"");
         site.setNumber(root + "\\Policy1", "maxPasswordAge", 20);
         site.write("pwsentry_pro_policy1_include.txt", "walter\n");
       }},
      {"without the list of the domain's users nobody is expired", 60,
       [](MailedSite&) { std::filesystem::create_directory("pwsentry_pro_domain_users.txt"); }},
      {"no mail without words", 40,
       [](MailedSite& site) { site.write("NorvynExpirationEmail.html", std::string("<p>\0", 4)); }},
      {"a pass that is stopped after its first user", 29,
       [](MailedSite& site) {
         site.policy("Policy1", 30);
         site.write("pwsentry_pro_policy1_include.txt", "walter\nsecond\n");
         site.user({"second", 29});
         // 13 unused slots, Policy1, walter
         site.stopRequested = [asked = 0]() mutable { return ++asked > 15; };
       }},
      {"the debug log of a warning day", 36, [](MailedSite& site) { site.setting("warning1", 6); },
       "username=walter"},
      // The first policy of the order has a user: of equal ages the one in the higher slot. Who is
      // excluded is free for a later one. "ghost" has the age of the user before, and no more.
      {"who is skipped, and why", 41,
       [](MailedSite& site) {
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
       },
       "username=twice"},
      {"a mail fails and the pass goes on", 40,
       [](MailedSite& site) {
         site.setting("emailAdminReports", 1);
         site.setting("adminEmailAddress", "admin@site.example");
         site.user({"refused", 40, "bad@site.example"});
       },
       "username=refused"},
      {"the directory cannot be reached", 40,
       [](MailedSite& site) {
         site.write("pwsentry_pro_policy1_include.txt", "walter\n");
         site.policy("Policy1", 14);
         site.writeOut();
         std::filesystem::remove("domain.ldif");
       },
       "Could not bind to"},
  };
  for (const auto& c : cases) {
    MailedSite site;
    site.user({"walter", c.age});
    c.prepare(site);
    const WatchedPass pass = site.pass();
    EXPECT_FALSE(contains(site.directoryText(), "pwdLastSet: 0"));
    EXPECT_EQ(outcomeText(site, pass, c.debugFrom),
              test_support::sectionOf(SERVICE_TEST_DATA "/passes.txt", c.what))
        << c.what;
  }
}

// The same for seven users and the expiries that wait for the end of the pass; then the log of the
// expired passwords, in the order in which they were.
TEST(Pass, ExpiresTheOldestFirstAndWhoIsNotified) {
  using Settings = std::vector<std::pair<const char*, std::uint32_t>>;
  const struct {
    const char* what;
    Settings settings;
    bool stops = false;  // after the first expiry
  } cases[] = {
      {"two at most", {{"maxExpirations", 2}}},
      {"only who is notified", {{"expireOnlyNotified", 1}, {"warning1", 7}}},
      {"two at most, and notified", {{"expireOnlyNotified", 1}, {"maxExpirations", 2}}},
      {"mailed earlier today", {{"expireOnlyNotified", 1}, {"limitEmails", 1}}},
      {"without a warning period", {{"expireOnlyNotified", 1}, {"warningThreshold", 0xFFFFFFF0}}},
      {"stopped after one", {{"maxExpirations", 9}}, true},
  };
  for (const auto& c : cases) {
    MailedSite site;
    for (const auto& [name, number] : c.settings) site.setting(name, number);
    site.setNumber(config::kProductKey, kLastRunDay, 5);
    site.policy("Policy1", 42, 0);
    site.write("pwsentry_pro_policy1_include.txt", "quiet\n");
    for (const test_support::SiteUser& user :
         std::vector<test_support::SiteUser>{{"walter", 45},
                                             {"refused", 90, "bad@site.example"},
                                             {"soon", 35},
                                             {"oldest", 85},
                                             {"noaddress", 80, ""},
                                             {"middle", 60},
                                             {"quiet", 50}}) {
      site.user(user);
    }
    if (c.stops) site.stopRequested = [&site] { return !site.read(kExpiredLog).empty(); };
    const WatchedPass pass = site.pass();
    EXPECT_EQ(outcomeText(site, pass, nullptr) + site.read(kExpiredLog),
              test_support::sectionOf(SERVICE_TEST_DATA "/expiries.txt", c.what))
        << c.what;
  }
}

// days.txt: when a password was set and when a pass is made, both UTC, and the days left of 42.
TEST(Pass, CountsWholeDaysSinceThePasswordWasSet) {
  const auto fileTime = [](const std::string& text) {
    base::LocalTime time;
    std::sscanf(text.c_str(), "%d-%d-%dT%d:%d:%d", &time.year, &time.month, &time.day, &time.hour,
                &time.minute, &time.second);
    return (base::wallSeconds(time) + 11'644'473'600) * test_support::kFileTimeSecond;
  };
  for (const auto& [times, left] : test_support::readRows(SERVICE_TEST_DATA "/days.txt")) {
    MailedSite site;
    const std::size_t blank = times.find(' ');
    const std::int64_t set = fileTime(times);
    site.setting("warningThreshold", 42);
    site.write("NorvynExpirationEmail.txt", "<%daysUntilExpiration%>");
    site.clock.now = set + test_support::kFileTimeSecond * 3600;  // see SampleUser
    site.user({"walter", 0});
    site.writeOut();
    site.clock.now = fileTime(times.substr(blank + 1));
    const WatchedPass pass = site.pass();
    EXPECT_EQ(std::to_string(pass.of("walter").daysLeft()), left) << times;
    ASSERT_EQ(site.catcher.savedFiles().size(), 1U) << times;
    const std::string mail = site.read(site.catcher.savedFiles()[0]);
    EXPECT_EQ(mail.substr(mail.find("\n\n") + 2), left + "\n") << times;
  }
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
  platform::DirectoryFacts facts() override { return file.facts(); }
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
    std::uint32_t threshold = 14, maxExpirations = 0;
  } cases[] = {
      {"unchanged", 50, [](Source&) {}, 1, Expired},
      {"changed since the pass began", 50, [](Source& s) { s.now = today; }, 0, OutsidePeriod},
      {"changed while the mail was on its way", 50, [](Source& s) { s.afterMailing = today; }, 1,
       Warned},
      {"changed, expired without a warning period", 50, [](Source& s) { s.now = daysAgo(20); }, 0,
       OutsidePeriod, "", "", 0xFFFFFFF0},
      {"changed before the end of the pass, where expiries wait", 50,
       [](Source& s) { s.afterMailing = today; }, 0, NotMailed, "", "", 14, 1},
      {"unchanged at the end of the pass", 50, [](Source&) {}, 1, Expired, "", "", 14, 1},
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
    site.setting("maxExpirations", c.maxExpirations);
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

TEST(PolicyOrder, RisesByAgeAndPutsTheHighestSlotFirstAmongEquals) {
  PolicyTable slots;
  slots[0].maxPasswordAge = 90;
  slots[1].maxPasswordAge = 30;
  slots[3].maxPasswordAge = 90;
  slots[5].maxPasswordAge = 10001;  // never found: slot 0 stands in its place
  slots[6].maxPasswordAge = 0xFFFFFFFF;
  EXPECT_THAT(policyOrder(slots), ElementsAre(14, 13, 12, 11, 10, 9, 8, 7, 4, 2, 1, 3, 0, 0, 0));
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
  EXPECT_TRUE(contains(site.read(config::kLastRunFile), "\"next\": \"2026-03-05T09:08:33Z\""));
  EXPECT_EQ(asMs(0x02000000, 3600000), 0xFFFFFFFEU);  // not what is left of it in 32 bits
}

TEST(RunForEver, WaitsForATimeOfTheDayAndLooksAtTheClockEachMinute) {
  MailedSite site;
  site.setting("expirationServiceTime", "09:08");
  SiteService service(site);
  LastRun anHourAgo;
  anHourAgo.began = base::wallSeconds(service.clock.local) - 3600;
  std::filesystem::create_directory("logfiles");
  EXPECT_TRUE(writeLastRun(anHourAgo));
  service.clock.duringSleep = [&](std::size_t) { service.clock.local = {2026, 3, 4, 5, 9, 8, 0}; };
  const std::string journal = service.journal();
  EXPECT_TRUE(journal.ends_with("; the next pass is at 10:38 on 2026-03-05\n")) << journal;
  EXPECT_THAT(service.clock.sleeps, ElementsAre(57000U, 60000U, 60000U));
}

TEST(RunForEver, SaysInTheJournalWhatEachPassCameTo) {
  const std::string next = "; the next pass is in 90 min\n";
  {
    MailedSite site;
    site.user({"walter", 40});
    SiteService service(site);
    service.clock.duringSleep = [&](std::size_t sleeps) {
      if (sleeps != 1) return;
      site.write("site.reg", "REGEDIT4\nnonsense\n");
      LastRun byHand;
      byHand.lastSuccess = 2'000'000'000;
      EXPECT_TRUE(writeLastRun(byHand));
    };
    const std::string well =
        "pwLapseSvc: pass over 1 line in 1 list, in 0 s: 1 warned; 1 mail sent";
    const std::string journal = service.journal();
    std::string unused;
    EXPECT_TRUE(journal.starts_with(well + next)) << journal;
    EXPECT_TRUE(contains(journal, "site.reg:2: ")) << journal;
    EXPECT_TRUE(contains(journal, ": the settings are those of before\n" + well + "; 1 problem"));
    EXPECT_EQ(readLastRun(unused)->lastSuccess, 2'000'000'000);
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
    site.setting("expirationServiceTime", "09:00");
    SiteService service(site);
    std::filesystem::create_directory("pwsentry_pro_domain_users.txt.lock");
    EXPECT_TRUE(service.journal().starts_with("pwLapseSvc: FAILED: no pass is made without"));
    EXPECT_EQ(site.catcher.savedFiles().size(), 0U);
  }
}

}  // namespace
