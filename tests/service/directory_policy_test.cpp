// A pass over users whose maximum ages are the directory's own, which the accounts bring or a
// search.
#include "service/directory_policy.h"

#include <map>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "console/smtp_catcher.h"
#include "platform/directory/ldif/ldif_source.h"
#include "platform/directory/snapshot_directory.h"
#include "platform/registry/file/reg_registry.h"
#include "service/outcome.h"
#include "tests/support/rows.h"
#include "tests/support/test_site.h"

namespace {

using namespace platform;
using testing::ElementsAre;

// A domain file beside which the times stand: those of the pass and of a second reading.
struct TimedSource final : DirectorySource {
  LdifSource file{"domain.ldif"};
  std::map<std::string, std::int64_t> times, again;
  std::vector<bool>& wanted;
  explicit TimedSource(std::vector<bool>& asked) : wanted(asked) {}

  void readExpiryTimes(bool are) override { wanted.push_back(are); }
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

// Accounts that bring neither the times nor the domain's maximum age.
struct PlainAccounts final : AccountDatabase {
  explicit PlainAccounts(SnapshotDirectory& domain) : all(domain) {}
  SnapshotDirectory& all;

  AccountResult userInfo(const std::u16string& name, UserInfo& info) override {
    return all.userInfo(name, info);
  }
  AccountResult currentUserInfo(const std::u16string& name, UserInfo& info) override {
    return all.currentUserInfo(name, info);
  }
  AccountResult setUserInfo(const std::u16string&, const UserInfo&) override {
    return {kNetAccessDenied, "no"};
  }
  NetStatus domainModals(DomainModals&) override { return kNetReadFault; }
};

TEST(DirectoryPolicy, GivesEachUserTheTimeOfTheDirectory) {
  const auto table = test_support::rows<6>(SERVICE_TEST_DATA "/directory_policy.txt", "users");
  enum class Way { Accounts, Search, Off };
  for (const Way way : {Way::Accounts, Way::Search, Way::Off}) {
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
      site.setNumber(std::string(config::kPolicyRootMpe) + "\\" + name, "useDirectoryPolicy",
                     way != Way::Off);
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
    site.writeOut();
    const auto registry = RegRegistry::load("site.reg", error);
    SnapshotDirectory directory(std::move(source), site.clock);
    PlainAccounts plain{directory};
    AccountDatabase& accounts =
        way == Way::Search ? static_cast<AccountDatabase&>(plain) : directory;
    test_support::WatchedPass pass;
    service::ExpirationRun run({*registry, accounts, directory, site.clock}, {false, 1}, &pass);
    run.prepare();
    pass.record = run.pass();

    EXPECT_EQ(std::count(wanted.begin(), wanted.end(), true), way == Way::Accounts ? 1 : 0);
    if (way == Way::Off) continue;
    std::size_t mails = 0;
    for (const auto& row : table) {
      const notify::UserRecord& user = pass.of(row[0]);
      const bool unknown = way == Way::Search && row[3] == "-";
      EXPECT_EQ(service::outcomeReason(user), unknown ? "account cannot be read" : row[5]);
      mails += user.emailedText == "yes" ? 1 : 0;
    }
    EXPECT_EQ(catcher.savedFiles().size(), mails);
    const auto findings = test_support::rows<1>(SERVICE_TEST_DATA "/directory_policy.txt",
                                                way == Way::Search ? "search" : "accounts");
    ASSERT_EQ(findings.size(), 1 + pass.notes().size());
    EXPECT_THAT(pass.problems(), ElementsAre(findings[0][0]));
    EXPECT_THAT(pass.notes(), ElementsAre(findings[1][0], findings[2][0]));
  }
}

}  // namespace
