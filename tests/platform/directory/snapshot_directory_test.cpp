// Look-ups over a snapshot: paths, searches, account data, and when the source is asked.
#include "platform/directory/snapshot_directory.h"

#include <map>
#include <sstream>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "base/unicode.h"
#include "platform/directory/ldif/ldif_source.h"
#include "platform/system/files.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace {

using namespace platform;

constexpr const char* kFile = "domain.ldif";

std::string domain(const std::string& maxPwdAge) {
  return "dn: DC=Site,DC=example\nobjectClass: domainDNS\nmaxPwdAge: " + maxPwdAge + "\n\n";
}

const std::string kUsers = test_support::readBytes(TEST_DATA "snapshot_users.ldif");

class SnapshotDirectoryTest : public testing::Test {
 protected:
  SnapshotDirectoryTest() { write(domain("-36288000000000") + kUsers); }

  static void write(const std::string& text) { ASSERT_TRUE(writeWholeFile(kFile, text)); }
  NetStatus bob() { return directory.userInfo(u"bob", info).status; }
  test_support::TempDir folder;
  test_support::ManualClock clock;
  SnapshotDirectory directory{std::make_unique<LdifSource>(kFile), clock};
  UserInfo info;
  DomainModals modals;
  std::unique_ptr<DirectoryObject> object;
  std::unique_ptr<DirectorySearch> opened;
  std::unique_ptr<SearchRows> rows;
  std::u16string text;
};

TEST_F(SnapshotDirectoryTest, TheSourceIsReadOncePerPass) {
  directory.beginPass();
  write(domain("0"));
  directory.initialise();
  EXPECT_EQ(bob(), kNetSuccess);
  directory.uninitialise();
  EXPECT_EQ(bob(), kNetSuccess);
  directory.beginPass();
  EXPECT_EQ(bob(), kNetUserNotFound);
  // Outside of a pass: kept while the directory is in use.
  directory.endPass();
  write(kUsers);
  directory.initialise();
  directory.initialise();
  EXPECT_EQ(directory.openObject(u"LDAP://CN=Bob 2,dc=site,DC=example", 1, object), kOk);
  write(domain("0"));
  directory.uninitialise();
  EXPECT_EQ(bob(), kNetSuccess);
  directory.uninitialise();
  EXPECT_EQ(bob(), kNetUserNotFound);
  // What was handed out lives on.
  EXPECT_EQ(object->get(u"samaccountname", text), kOk);
  EXPECT_EQ(text, u"bob");
}

TEST_F(SnapshotDirectoryTest, PersonalDetailsAreReadWhenTheyAreWanted) {
  write(domain("0") + "dn: CN=Eve/1,DC=site,DC=example\nobjectClass: user\nsAMAccountName: eve\n" +
        "preferredLanguage: de-AT\nmanager: CN=Bob 2,DC=site,DC=example\n\n" + kUsers);
  for (const bool wanted : {false, true}) {
    directory.readPersonalDetails(wanted);
    directory.beginPass();
    EXPECT_EQ(directory.openObject(u"LDAP://CN=Eve\\/1,DC=site,DC=example", 1, object), kOk);
    EXPECT_EQ(object->get(u"manager", text) == kOk, wanted);
    EXPECT_EQ(object->get(u"displayName", text), kAdsPropertyNotFound);
  }
  EXPECT_EQ(text, u"CN=Bob 2,DC=site,DC=example");
}

TEST_F(SnapshotDirectoryTest, AFailureIsRememberedForThePass) {
  removeFile(kFile);
  directory.beginPass();
  write(kUsers);
  EXPECT_EQ(bob(), kNetNoDomainController);
  EXPECT_EQ(directory.domainModals(modals), kNetNoDomainController);
  EXPECT_EQ(directory.getObject(u"LDAP://rootDSE", object), 0x80070002);
  EXPECT_EQ(directory.getSearch(u"LDAP://DC=site,DC=example", opened), 0x80070002);
  EXPECT_EQ(directory.lastError().text, "domain.ldif: No such file or directory");
  directory.beginPass();
  EXPECT_EQ(bob(), kNetSuccess);
}

TEST_F(SnapshotDirectoryTest, Paths) {
  std::unique_ptr<DirectoryUser> user;
  ASSERT_EQ(directory.getObject(u"ldap://RootDse", object), kOk);
  EXPECT_TRUE(failed(object->queryUser(user)));
  ASSERT_EQ(directory.openObject(u"LDAP://cn=doc\\, a,ou=staff,dc=site,dc=example", 1, object),
            kOk);
  ASSERT_EQ(object->queryUser(user), kOk);
  EXPECT_EQ(user->lastName(text), kAdsPropertyNotFound);
  EXPECT_EQ(directory.openObject(u"LDAP://CN=Nobody,DC=Site,DC=example", 1, object), kNoSuchObject);
  EXPECT_EQ(directory.openObject(u"GC://rootDSE", 1, object), kAdsBadPathName);
  EXPECT_EQ(directory.openSearch(u"LDAP://DC=other,DC=example", 1, opened), kNoSuchObject);
}

TEST_F(SnapshotDirectoryTest, Searches) {
  const std::map<std::string, SearchScope> scopes = {{"base", SearchScope::Base},
                                                     {"onelevel", SearchScope::OneLevel},
                                                     {"subtree", SearchScope::Subtree}};
  for (const auto& [search, expected] : test_support::readRows(TEST_DATA "searches.txt")) {
    std::string scope, path, column, filter, values;
    std::istringstream(search) >> scope >> path >> column >> filter;
    const std::u16string wide = base::utf8ToUtf16(column);
    EXPECT_EQ(directory.openSearch(base::utf8ToUtf16(path), kAdsSecureAuthentication, opened), kOk);
    opened->setScope(scopes.at(scope));
    EXPECT_EQ(opened->execute(base::utf8ToUtf16(filter), {wide}, rows), kOk);
    for (SearchColumn value; rows->next() == kOk;) {
      EXPECT_EQ(rows->column(wide, value), kOk);
      values += base::utf16ToUtf8(value.firstValue) + '|';
    }
    EXPECT_EQ(rows->next(), kAdsNoMoreRows);
    EXPECT_EQ(values.empty() ? "nobody" : values, expected) << search;
  }
  EXPECT_EQ(opened->execute(u"(samAccountName=a", {u"ADsPath"}, rows), kFilterUnknown);
}

TEST_F(SnapshotDirectoryTest, AccountData) {
  const std::tuple<const char16_t*, std::uint32_t, std::uint32_t> accounts[] = {
      {u"\u00E4rzte(1)", 0, 91 * 86400 + 1},
      {u"BOB", kAccountDisabled | kPasswordDontExpire, 86400},
      {u"pc$", 0, 0},
      {u"bob", kAccountDisabled | kPasswordDontExpire, 86400},  // the first, from beside the second
  };
  for (const auto& [name, flags, age] : accounts) {
    ASSERT_TRUE(directory.userInfo(name, info).ok());
    EXPECT_EQ(info.flags, flags);
    EXPECT_EQ(info.passwordAge, age);
  }
  EXPECT_EQ(directory.userInfo(u"nobody", info).status, kNetUserNotFound);
  const std::pair<const char*, std::uint32_t> maxima[] = {
      {"-36288000000000", 42 * 86400},
      {"-9223372036854775807", kPasswordNeverExpires},
      {"-9223372036854775808", kPasswordNeverExpires},
      {"0", kPasswordNeverExpires}};
  for (const auto& [stored, age] : maxima) {
    write(domain(stored));
    directory.beginPass();
    EXPECT_EQ(directory.domainModals(modals), kNetSuccess);
    EXPECT_EQ(modals.maxPasswordAge, age) << stored;
  }
}

TEST_F(SnapshotDirectoryTest, AnAccountIsReadAgainAndExpiredAtItsSource) {
  directory.beginPass();
  info.passwordExpired = 5;
  write("changed");
  EXPECT_EQ(directory.currentUserInfo(u"bob", info).text, "domain.ldif: changed since it was read");
  EXPECT_EQ(directory.setUserInfo(u"bob", info).status, kNetWriteFault);
  EXPECT_EQ(bob(), kNetSuccess);
  EXPECT_EQ(info.passwordAge, 86400U);
  // His password is an hour younger by now.
  std::string changed = kUsers;
  changed.replace(changed.find("134170888230000000"), 18, "134170924230000000");
  write(domain("-36288000000000") + changed);
  info.passwordExpired = 5;
  EXPECT_EQ(directory.setUserInfo(u"bob", info).status, kNetPasswordChanged);
  EXPECT_EQ(bob(), kNetSuccess);
  EXPECT_EQ(info.passwordAge, 86400U);  // of the pass
  EXPECT_TRUE(directory.currentUserInfo(u"bob", info).ok());
  EXPECT_EQ(info.passwordAge, 82800U);
  EXPECT_EQ(info.flags, kAccountDisabled | kPasswordDontExpire);
  info.passwordExpired = 5;
  EXPECT_TRUE(directory.setUserInfo(u"bob", info).ok());
  EXPECT_EQ(bob(), kNetSuccess);
  EXPECT_EQ(info.passwordAge, 0U);
  EXPECT_EQ(directory.currentUserInfo(u"nobody", info).status, kNetUserNotFound);
}

}  // namespace
