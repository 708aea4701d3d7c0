// The forced change at next logon and the line it leaves; ages in whole days.
#include "directory/password_expiry.h"

#include <string>

#include <gtest/gtest.h>

#include "platform/system/files.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace {

using namespace platform;

struct FakeAccounts final : AccountDatabase {
  NetStatus status = kNetSuccess, setStatus = kNetSuccess;
  std::uint32_t written = 0;

  NetStatus userInfo(const std::u16string&, UserInfo&) override { return status; }
  NetStatus setUserInfo(const std::u16string&, const UserInfo& info) override {
    written = info.passwordExpired;
    return setStatus;
  }
  NetStatus domainModals(DomainModals& modals) override {
    modals.maxPasswordAge = 42 * 86400 + 86399;
    return status;
  }
};

TEST(PasswordExpiry, WritesTheRecordBackAndLogsOnlyWhatWasTaken) {
  test_support::TempDir directory;
  createDirectory("logfiles");
  test_support::ManualClock clock;
  clock.local = {2024, 3, 0, 3, 9, 5, 7};
  FakeAccounts accounts;
  EXPECT_EQ(directory::readDomainMaxAge(accounts).days, 42U);
  EXPECT_TRUE(directory::expireUserPassword(accounts, clock, u"\u00C4nna", 91));
  EXPECT_EQ(accounts.written, 5U);
  EXPECT_TRUE(directory::expireUserPassword(accounts, clock, u"bob", 100));
  accounts.setStatus = kNetAccessDenied;
  EXPECT_FALSE(directory::expireUserPassword(accounts, clock, u"refused", 91));
  accounts.status = kNetUserNotFound;
  EXPECT_FALSE(directory::expireUserPassword(accounts, clock, u"unknown", 91));
  EXPECT_FALSE(directory::readDomainMaxAge(accounts).known);
  EXPECT_EQ(test_support::readText("logfiles\\Norvyn-expired-pw.log"),
            "\" 3/03/2024  9:05:07\",\"\u00C4nna\",\"91\",\"successful\"\n"
            "\" 3/03/2024  9:05:07\",\"bob\",\"100\",\"successful\"\n");
}

}  // namespace
