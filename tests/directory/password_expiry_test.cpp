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
  AccountResult read, set;
  std::uint32_t age = 0, written = 0;

  AccountResult userInfo(const std::u16string&, UserInfo& info) override {
    info.passwordAge = age;
    return read;
  }
  AccountResult setUserInfo(const std::u16string&, const UserInfo& info) override {
    written = info.passwordExpired;
    return set;
  }
  NetStatus domainModals(DomainModals& modals) override {
    modals.maxPasswordAge = 42 * 86400 + 86399;
    return read.status;
  }
};

TEST(PasswordExpiry, WritesOnlyWhatWasJudgedAndLogsOnlyWhatWasTaken) {
  test_support::TempDir directory;
  createDirectory("logfiles");
  test_support::ManualClock clock;
  clock.local = {2024, 3, 0, 3, 9, 5, 7};
  const std::uint32_t age = 91 * 86400;
  const AccountResult denied{kNetAccessDenied, "denied"}, unknown{kNetUserNotFound, "unknown"};
  const struct {
    const char16_t* name;
    std::uint32_t age;
    AccountResult read, set;
    NetStatus status;
    const char* text;
    std::uint32_t written;
  } cases[] = {
      {u"\u00C4nna", age, {}, {}, kNetSuccess, "", 5},
      {u"bob", age + 86400, {}, {}, kNetSuccess, "", 5},
      {u"refused", age, {}, denied, kNetAccessDenied, "denied", 5},
      {u"unknown", age, unknown, {}, kNetUserNotFound, "unknown", 0},
      {u"changed", age - 1, {}, {}, kNetPasswordChanged, "the password was changed", 0},
  };
  for (const auto& each : cases) {
    FakeAccounts accounts;
    accounts.read = each.read;
    accounts.set = each.set;
    accounts.age = each.age;
    const AccountResult result = directory::expireUserPassword(accounts, clock, each.name, 91);
    EXPECT_EQ(result.status, each.status) << each.text;
    EXPECT_EQ(result.text, each.text);
    EXPECT_EQ(accounts.written, each.written) << each.text;
    const directory::DomainMaxAge maxAge = directory::readDomainMaxAge(accounts);
    EXPECT_EQ(maxAge.known, each.read.ok());
    EXPECT_EQ(maxAge.days, maxAge.known ? 42U : 0U);
  }
  EXPECT_EQ(test_support::readText("logfiles\\Norvyn-expired-pw.log"),
            "\" 3/03/2024  9:05:07\",\"\u00C4nna\",\"91\",\"successful\"\n"
            "\" 3/03/2024  9:05:07\",\"bob\",\"91\",\"successful\"\n");
}

}  // namespace
