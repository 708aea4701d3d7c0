// What a pass does when its mail server refuses, is silent or breaks off: what it tries and when,
// what the report's rows and the findings say. failing_mails.txt has what each case comes to.
#include <map>
#include <sstream>

#include <gtest/gtest.h>

#include "base/format_text.h"
#include "platform/directory/ldif/ldif_source.h"
#include "platform/system/files.h"
#include "tests/support/test_site.h"
#include "tests/support/text_file.h"

namespace {

using kelvado::SmtpStep;
using Settings = std::vector<std::pair<const char*, std::uint32_t>>;

const std::map<std::string, kelvado::SmtpFailure> kFailures = {
    {"refused", {SmtpStep::Connect, 0, false, "connection refused", "mail.example:25"}},
    {"silent", {SmtpStep::Greeting, 0, true, "timed out", "mail.example:25"}},
    {"closing", {SmtpStep::Greeting, 421, false, "421 too busy", "mail.example:25"}},
    {"login", {SmtpStep::Login, 535, false, "535 5.7.8 wrong", "mail.example:25"}},
    {"sender", {SmtpStep::MailFrom, 553, false, "553 not you", "mail.example:25"}},
    {"451", {SmtpStep::RcptTo, 451, false, "451 later", "mail.example:25"}},
    {"550", {SmtpStep::RcptTo, 550, false, "550 no mailbox", "mail.example:25"}},
    {"lost", {SmtpStep::Text, 0, false, "connection closed by the server", "mail.example:25"}},
};

// Does what the words of a script say, one a mail, the last again and again; notes when and to
// whom.
class ScriptedTransport : public notify::MailTransport {
 public:
  ScriptedTransport(test_support::ManualClock& clock, const std::string& script, std::string& story)
      : clock_(clock), words_(script), story_(story) {}

  bool send(kelvado::KvEmail& email) override {
    words_ >> word_;
    std::string to = email.GetTo();
    to.erase(0, to.find_first_not_of("\"<"));
    story_ += base::formatText("%u s: %s to %s\n", clock_.ticks / 1000, word_.c_str(),
                               to.substr(0, to.find('@')).c_str());
    if (word_ == "silent") clock_.ticks += 30'000;
    return word_ == "ok";
  }
  kelvado::SmtpFailure failure() override { return kFailures.at(word_); }
  std::string errorXml() override { return "<KelvadoLog>\r\n</KelvadoLog>\r\n"; }

 private:
  test_support::ManualClock& clock_;
  std::istringstream words_;
  std::string word_;
  std::string& story_;
};

// Reads, and does not answer when it is to write.
struct SilentWriter : platform::DirectorySource {
  explicit SilentWriter(int& writes) : writes_(writes) {}

  platform::HResult load(platform::DirectorySnapshot& snapshot,
                         platform::DirectoryError& error) override {
    return file_.load(snapshot, error);
  }
  platform::AccountResult refresh(platform::DirectoryEntry& entry) override {
    return file_.refresh(entry);
  }
  platform::AccountResult expirePassword(const platform::DirectoryEntry& entry) override {
    return {platform::kNetNoDomainController,
            entry.dn + ": timed out " + std::to_string(++writes_)};
  }
  platform::DirectoryFacts facts() override { return {}; }

 private:
  platform::LdifSource file_{"domain.ldif"};
  int& writes_;
};

TEST(FailingDirectory, IsAskedForTwoExpiriesOnly) {
  for (const std::uint32_t limit : {0, 2}) {
    test_support::TestSite site;
    site.setting("maxExpirations", limit);
    site.policy("DefaultPolicy", 42, 0);
    for (const char* name : {"one", "two", "three", "four"}) site.user({name, 50});
    int writes = 0;
    const auto pass = site.pass({false, 3600000}, std::make_unique<SilentWriter>(writes));
    EXPECT_EQ(writes, 2);
    ASSERT_EQ(pass.problems().size(), limit == 0 ? 4U : 3U);
    EXPECT_EQ(pass.problems()[0],
              limit == 0
                  ? "the directory did not answer the forced password change of one, which may "
                    "have been made: CN=one,CN=Users,DC=site,DC=example: timed out 1"
                  : "maxExpirations (2) is reached, with 2 that the directory did not answer: "
                    "2 passwords were left for later passes");
    if (limit != 0) continue;
    EXPECT_EQ(pass.record.counts[static_cast<int>(service::Outcome::ExpiryRefused)], 4U);
    EXPECT_EQ(pass.problems()[3],
              "1 more forced password change was not taken by the directory, for the same reason: "
              "not tried: the directory did not answer twice in a row");
  }
}

TEST(FailingMails, SayOnceThatTheWordsOfTheServerAreLost) {
  test_support::TestSite site;
  site.policy("DefaultPolicy", 42);
  for (const char* name : {"one", "two"}) site.user({name, 40, "user@site.example"});
  platform::createDirectory("errors-norvyn-email.xml");
  std::string story;
  site.transport = [&](const config::ExpirationSettings&) {
    return std::make_unique<ScriptedTransport>(site.clock, "550", story);
  };
  const test_support::WatchedPass pass = site.pass();
  EXPECT_EQ(pass.notes(), std::vector<std::string>{});
  ASSERT_EQ(pass.problems().size(), 3U);
  EXPECT_TRUE(pass.problems()[0].starts_with(
      "errors-norvyn-email.xml could not be written, so what the mail server said to a mail that "
      "failed is lost: "));
}

TEST(FailingMails, ComeToWhatTheFileSays) {
  const struct {
    const char* what;
    int users;
    const char* script;
    Settings settings = {};
    std::uint32_t stopAtSecond = 100'000;
    const char* reportWhen = nullptr;  // a word: the report is to be mailed then
  } cases[] = {
      {"a silent server is given up", 12, "silent", {{"emailAdminReports", 1}}},
      {"never given up", 7, "refused", {{"smtpGiveUpAfter", 0}}},
      {"an answer starts the count anew",
       8,
       "refused refused 550 refused refused ok",
       {{"smtpGiveUpAfter", 3}}},
      {"a lost connection does not", 5, "silent lost silent", {{"smtpGiveUpAfter", 2}}},
      {"a wrong login is the same for all", 3, "login"},
      {"so is a sender that is refused", 3, "sender"},
      {"what is refused for now is tried at the end",
       4,
       "ok 451 550 lost 451 ok ok",
       {{"smtpRetries", 2}}},
      {"until the tries are used up", 1, "451", {{"smtpRetries", 3}, {"smtpRetryDelay", 10}}},
      {"a server that comes back after a while",
       4,
       "ok refused refused ok",
       {{"smtpRetries", 1}, {"smtpGiveUpAfter", 2}}},
      {"a server that stays away gets one mail a round",
       4,
       "ok closing closing refused",
       {{"smtpRetries", 2}, {"smtpGiveUpAfter", 2}}},
      {"a wait ends when the pass is stopped", 2, "451", {{"smtpRetries", 3}}, 7},
      {"the report waits too", 1, "ok 451 ok", {{"smtpRetries", 1}, {"emailAdminReports", 1}}},
      {"a report that nobody needs", 1, "ok", {}, 100'000, "problems"},
      {"a report of problems", 1, "550 ok", {}, 100'000, "Problems"},
      {"a report of mails", 1, "ok ok", {}, 100'000, "changes"},
      {"a report of no change", 1, "ok", {{"warningThreshold", 1}}, 100'000, "changes"},
      {"evenly spread", 3, "ok", {{"smtpMaxPerMinute", 20}}},
      {"expired once the mail was taken",
       2,
       "451 ok ok",
       {{"smtpRetries", 1}, {"expireOnlyNotified", 1}, {"warningThreshold", 1}}},
      {"expired in order, though the oldest waits for the mail",
       3,
       "451 ok",
       {{"smtpRetries", 1}, {"expireOnlyNotified", 1}, {"maxExpirations", 1}}},
  };
  for (const auto& c : cases) {
    test_support::TestSite site;
    site.policy("DefaultPolicy", 42);
    site.setting("htmllog", 1);
    site.setting("adminEmailAddress", "admin@site.example");
    for (const auto& [name, number] : c.settings) site.setting(name, number);
    if (c.reportWhen != nullptr) {
      site.setting("emailAdminReports", 1);
      site.setting("adminReportWhen", c.reportWhen);
    }
    const bool expires = std::string(c.what).starts_with("expired");
    for (int i = 1; i <= c.users; ++i) {
      const std::string name = "user" + std::to_string(i);
      site.user({name, expires ? 43 : 40, name + "@site.example"});
    }
    std::string story;
    site.transport = [&](const config::ExpirationSettings&) {
      return std::make_unique<ScriptedTransport>(site.clock, c.script, story);
    };
    site.stopRequested = [&] { return site.clock.ticks >= c.stopAtSecond * 1000; };
    const test_support::WatchedPass pass = site.pass();
    story += base::formatText("%u s: the end\n", site.clock.ticks / 1000);
    const std::string report = site.read("logfiles/norvyn-expiration-report.html");
    for (std::size_t at = 0; (at = report.find("<tr><td>user", at + 1)) != std::string::npos;) {
      const std::size_t end = report.find("</td></tr>", at), cell = report.rfind("<td>", end);
      story += report.substr(at + 8, report.find('<', at + 8) - at - 8) + ": " +
               report.substr(cell + 4, end - cell - 4) + "\n";
    }
    for (const std::string& problem : pass.problems()) story += "problem: " + problem + "\n";
    EXPECT_EQ(story, test_support::sectionOf(SERVICE_TEST_DATA "/failing_mails.txt", c.what))
        << c.what;
    const std::string error = site.read("errors-norvyn-email.xml");
    const bool dated = error.find("\n<time> 3/05/2026  9:07:03</time>\n<recipient>") != error.npos;
    EXPECT_EQ(dated, std::string(c.script).find_first_not_of("ok ") != std::string::npos);
  }
}

// Two of the manager's users have few days left, another one many; one manager has no address.
TEST(ManagersMails, ComeToWhatTheFileSays) {
  const struct {
    const char* what;
    const char* script;
    Settings settings = {};
    int passes = 1;
    std::uint32_t stopAtSecond = 100'000;
  } cases[] = {
      {"one for all users of a manager", "ok"},
      {"remembered, each for itself",
       "ok ok ok 550 ok",
       {{"rememberWarnings", 1}, {"warning1", 7}},
       3},
      {"tried again", "ok ok ok 451 ok", {{"smtpRetries", 1}}},
      {"stopped while a copy waits", "ok ok ok 451", {{"smtpRetries", 1}}, 1, 7},
      {"given up", "refused", {{"smtpGiveUpAfter", 2}}},
      {"nobody in report-only mode", "ok", {{"reportOnly", 1}}},
      {"on warning days only", "ok", {{"warning1", 6}}},
      {"with the expiry", "ok", {{"expireOnlyNotified", 1}, {"warningThreshold", 1}}},
  };
  for (const auto& c : cases) {
    test_support::TestSite site;
    site.policy("DefaultPolicy", 42);
    site.setting("managerDays", 3);
    for (const auto& [name, number] : c.settings) site.setting(name, number);
    const bool expires = std::string(c.what).ends_with("expiry");
    const auto user = [&](const char* name, int age, const char* mail, const char* manager) {
      site.user({name, age, mail, 0x200, "Given", "Surname", false, manager});
    };
    user("many", 36, "many@site.example", "boss");
    user("few", expires ? 43 : 40, "few@site.example", "boss");
    user("none", 41, "", "boss");
    user("lost", 41, "lost@site.example", "chief");
    user("boss", 1, "boss@site.example", "");
    user("chief", 1, "", "");
    std::string story;
    site.transport = [&](const config::ExpirationSettings&) {
      return std::make_unique<ScriptedTransport>(site.clock, c.script, story);
    };
    site.stopRequested = [&] { return site.clock.ticks >= c.stopAtSecond * 1000; };
    for (int i = 0; i < c.passes; ++i) {
      const test_support::WatchedPass pass = site.pass();
      for (const std::string& problem : pass.problems()) story += "problem: " + problem + "\n";
      story += service::passLine(pass.record) +
               base::formatText("; %d managers' mails failed\n",
                                static_cast<int>(pass.record.managerMails().failed));
    }
    EXPECT_EQ(story, test_support::sectionOf(SERVICE_TEST_DATA "/managers_mails.txt", c.what))
        << c.what;
  }
}

}  // namespace
