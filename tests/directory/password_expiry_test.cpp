// The forced change at next logon and the line it leaves; ages in whole days.
#include "directory/password_expiry.h"

#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "config/pass_files.h"
#include "platform/system/files.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace {

using namespace platform;

struct FakeAccounts final : AccountDatabase {
  FakeAccounts(AccountResult onRead, AccountResult onSet, std::uint32_t passwordAge)
      : read(std::move(onRead)), set(std::move(onSet)), age(passwordAge) {}
  AccountResult read, set;
  std::uint32_t age, written = 0;

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
    std::uint32_t age;  // seconds
    AccountResult read, set, result;
  } cases[] = {
      {u"\u00C4nna", age, {}, {}, {}},
      {u"bob", age + 86400, {}, {}, {}},
      {u"refused", age, {}, denied, denied},
      {u"unknown", age, unknown, {}, unknown},
      {u"changed", age - 1, {}, {}, {kNetPasswordChanged, "the password was changed"}},
  };
  config::Findings findings;
  config::AuditLog expiredLog(config::kExpiredPasswordLog, findings);
  for (const auto& each : cases) {
    FakeAccounts accounts{each.read, each.set, each.age};
    const AccountResult result =
        directory::expireUserPassword(accounts, clock, each.name, 91, expiredLog);
    EXPECT_EQ(result.status, each.result.status);
    EXPECT_EQ(result.text, each.result.text);
    const bool asked = result.ok() || result.status == kNetAccessDenied;
    EXPECT_EQ(accounts.written, asked ? 5U : 0U) << result.text;
    const directory::DomainMaxAge maxAge = directory::readDomainMaxAge(accounts);
    EXPECT_EQ(maxAge.known ? maxAge.days : 0, each.read.ok() ? 42U : 0U);
  }
  EXPECT_EQ(test_support::readText("logfiles\\Norvyn-expired-pw.log"),
            "\" 3/03/2024  9:05:07\",\"\u00C4nna\",\"91\",\"successful\"\n"
            "\" 3/03/2024  9:05:07\",\"bob\",\"91\",\"successful\"\n");
}

}  // namespace
