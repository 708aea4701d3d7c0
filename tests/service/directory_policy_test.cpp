// A pass over users whose maximum ages are the directory's own.
#include "service/directory_policy.h"

#include <map>

#include <gtest/gtest.h>

#include "console/smtp_catcher.h"
#include "platform/directory/ldif/ldif_source.h"
#include "service/outcome.h"
#include "tests/support/rows.h"
#include "tests/support/test_site.h"

namespace {

using namespace platform;

// A domain file beside which the times stand: those of the pass and of a second reading.
struct TimedSource final : DirectorySource {
  LdifSource file{"domain.ldif"};
  std::map<std::string, std::int64_t> times, again;
  std::vector<bool>& wanted;
  explicit TimedSource(std::vector<bool>& asked) : wanted(asked) {}

  void want(const OptionalAttributes& are) override { wanted.push_back(are.expiryTimes); }
  HResult load(DirectorySnapshot& snapshot, DirectoryError& error) override {
    const HResult status = file.load(snapshot, error);
    for (DirectoryEntry& entry : snapshot.entries) entry.passwordExpires = times[entry.logonName];
    return status;
  }
  AccountResult refresh(DirectoryEntry& entry) override {
    entry.passwordExpires = again[entry.logonName];
    return {};
  }
  AccountResult expirePassword(const DirectoryEntry&) override { return {kNetAccessDenied, "no"}; }
  DirectoryFacts facts() override { return {}; }
};

TEST(DirectoryPolicy, GivesEachUserTheTimeOfTheDirectory) {
  const auto table = test_support::rows<6>(SERVICE_TEST_DATA "/directory_policy.txt", "users");
  for (const bool used : {true, false}) {
    test_support::TestSite site;
    console::SmtpCatcher catcher;
    console::CatcherOptions options;
    options.directory = "mails";
    std::string error;
    ASSERT_TRUE(catcher.start(options, error)) << error;
    site.setting("smtpPort", catcher.port());
    for (const auto& [name, age] :
         {std::pair("DefaultPolicy", 1), {"Policy1", 0}, {"Policy2", 2}}) {
      site.policy(name, static_cast<std::uint32_t>(age));
      site.setNumber(std::string(config::kPolicyRootMpe) + "\\" + name, "useDirectoryPolicy", used);
    }
    site.write("pwsentry_pro_policy2_include.txt", "nobody\n");
    std::vector<bool> wanted;
    auto source = std::make_unique<TimedSource>(wanted);
    const auto timeOf = [&](const std::string& text) -> std::int64_t {
      if (text == "-") return 0;
      if (text == "never") return kNoExpiryTime;
      return site.clock.now + std::stoll(text) * test_support::kFileTimeSecond;
    };
    for (const auto& [name, age, flags, time, again, outcome] : table) {
      test_support::SiteUser user{name, std::stoi(age)};
      user.accountControl = static_cast<std::uint32_t>(std::stoul(flags));
      site.user(user);
      source->times[name] = timeOf(time);
      source->again[name] = timeOf(again.empty() ? time : again);
    }
    const test_support::WatchedPass pass = site.pass({false, 1}, std::move(source));

    EXPECT_EQ(std::count(wanted.begin(), wanted.end(), true), used ? 1 : 0);
    if (!used) continue;
    std::size_t mails = 0;
    for (const auto& row : table) {
      const notify::UserRecord& user = pass.of(row[0]);
      EXPECT_EQ(service::outcomeReason(user), row[5]);
      mails += user.emailedText == "yes" ? 1 : 0;
    }
    EXPECT_EQ(catcher.savedFiles().size(), mails);
    std::string findings;
    for (const auto& lines : {pass.problems(), pass.notes()}) {
      for (const std::string& line : lines) findings += line + "\n";
    }
    EXPECT_EQ(findings, test_support::sectionOf(SERVICE_TEST_DATA "/directory_policy.txt",
                                                "the problem and the notes"));
  }
}

}  // namespace
