// Days out of seconds, the forced change at next logon, and the line it leaves.
#include "directory/password_expiry.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/files.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace platform;

struct FakeAccounts final : AccountDatabase {
  NetStatus getStatus = kNetSuccess, setStatus = kNetSuccess, modalsStatus = kNetSuccess;
  UserInfo stored{0x200, 91 * 86400, 0, nullptr};
  std::uint32_t maxPasswordAge = 0;
  std::vector<UserInfo> written;

  NetStatus userInfo(const std::u16string&, UserInfo& info) override {
    info = stored;
    return getStatus;
  }
  NetStatus setUserInfo(const std::u16string&, const UserInfo& info) override {
    written.push_back(info);
    return setStatus;
  }
  NetStatus domainModals(DomainModals& modals) override {
    modals.maxPasswordAge = maxPasswordAge;
    return modalsStatus;
  }
};

TEST(PasswordExpiry, DomainMaximumAgeInWholeDays) {
  FakeAccounts accounts;
  accounts.maxPasswordAge = 42 * 86400 + 86399;
  EXPECT_EQ(directory::readDomainMaxAge(accounts).days, 42U);
  EXPECT_TRUE(directory::readDomainMaxAge(accounts).known);
  accounts.modalsStatus = kNetNoDomainController;
  EXPECT_EQ(directory::readDomainMaxAge(accounts).days, 0U);
  EXPECT_FALSE(directory::readDomainMaxAge(accounts).known);
}

TEST(PasswordExpiry, WritesTheRecordBackAndLogsOnlyWhatWasTaken) {
  test_support::TempDir directory;
  createDirectory("logfiles");
  test_support::ManualClock clock;
  clock.local = {2024, 3, 0, 3, 9, 5, 7};
  FakeAccounts accounts;
  accounts.setStatus = kNetAccessDenied;
  EXPECT_FALSE(directory::expireUserPassword(accounts, clock, u"anna", 91));
  accounts.getStatus = kNetUserNotFound;
  EXPECT_FALSE(directory::expireUserPassword(accounts, clock, u"anna", 91));
  EXPECT_FALSE(fileExists(directory::kExpiredPasswordLog));
  ASSERT_EQ(accounts.written.size(), 1U);

  accounts.getStatus = accounts.setStatus = kNetSuccess;
  EXPECT_TRUE(directory::expireUserPassword(accounts, clock, u"\u00C4nna", 91));
  EXPECT_EQ(accounts.written.back().passwordExpired, 5U);
  EXPECT_EQ(accounts.written.back().flags, accounts.stored.flags);
  EXPECT_TRUE(directory::expireUserPassword(accounts, clock, u"bob", 100));
  std::string text;
  readWholeFile("logfiles\\Norvyn-expired-pw.log", text);
  EXPECT_EQ(text,
            "\" 3/03/2024  9:05:07\",\"\u00C4nna\",\"91\",\"successful\"\n"
            "\" 3/03/2024  9:05:07\",\"bob\",\"100\",\"successful\"\n");
}

}  // namespace
