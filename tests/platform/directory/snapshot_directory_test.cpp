// Look-ups over a snapshot: paths, searches, account data, and when the source is asked.
#include "platform/file/snapshot_directory.h"

#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/manual_clock.h"

namespace {

using namespace platform;
using testing::ElementsAre;

// A source in memory that counts what it is asked.
struct FakeSource final : DirectorySource {
  DirectorySnapshot content;
  HResult status = kOk;
  NetStatus expireStatus = kNetSuccess;
  int loads = 0;
  std::vector<std::string> expired;

  HResult load(DirectorySnapshot& snapshot, DirectoryError& error) override {
    ++loads;
    if (failed(status)) {
      error = {81, "no server", "fake"};
    } else {
      snapshot = content;
    }
    return status;
  }
  NetStatus expirePassword(const DirectoryEntry& entry, DirectoryError&) override {
    expired.push_back(entry.logonName);
    return expireStatus;
  }
};

class SnapshotDirectoryTest : public testing::Test {
 protected:
  SnapshotDirectoryTest() {
    source->content.namingContext = "DC=Site,DC=example";
    source->content.maxPwdAge = -42 * test_support::kFileTimeDay;
    add("Ärzte(1)", "CN=Doc\\, A,OU=Staff,DC=Site,DC=example").mail = "doc@site.example";
    add("bob", "CN=Bob,OU=Deep,OU=Staff,DC=Site,DC=example").accountControl = 0x10202;
    add("bob", "CN=Bob 2,DC=Site,DC=example");
    add("PC$", "CN=PC,DC=Site,DC=example").isPerson = false;
  }

  DirectoryEntry& add(const std::string& name, const std::string& dn) {
    DirectoryEntry& entry = source->content.entries.emplace_back();
    entry.logonName = name;
    entry.dn = dn;
    entry.pwdLastSet = clock.now - test_support::kFileTimeDay;
    return entry;
  }

  // The values of one column of every row.
  std::vector<std::u16string> search(const std::u16string& path, const std::u16string& filter,
                                     const std::u16string& column,
                                     SearchScope scope = SearchScope::Subtree) {
    std::vector<std::u16string> values;
    std::unique_ptr<DirectorySearch> search;
    std::unique_ptr<SearchRows> rows;
    EXPECT_EQ(directory.openSearch(path, kAdsSecureAuthentication, search), kOk);
    search->setScope(scope);
    EXPECT_EQ(search->execute(filter, column, rows), kOk);
    SearchColumn value;
    while (rows->next() == kOk) {
      EXPECT_EQ(rows->column(column, value), kOk);
      values.push_back(value.firstValue);
    }
    EXPECT_EQ(rows->next(), kAdsNoMoreRows);
    return values;
  }

  test_support::ManualClock clock;
  FakeSource* source = new FakeSource;  // owned by the directory
  SnapshotDirectory directory{std::unique_ptr<DirectorySource>(source), clock};
};

TEST_F(SnapshotDirectoryTest, TheSourceIsReadOncePerPass) {
  UserInfo info;
  std::unique_ptr<DirectoryObject> object;
  directory.beginPass();
  directory.initialise();
  EXPECT_EQ(directory.userInfo(u"bob", info), kNetSuccess);
  directory.uninitialise();
  EXPECT_EQ(directory.openObject(u"ldap://ROOTDSE", 1, object), kOk);
  EXPECT_EQ(source->loads, 1);
  directory.beginPass();
  EXPECT_EQ(source->loads, 2);
  directory.endPass();
  // Outside of a pass: kept while the directory is in use.
  directory.initialise();
  directory.initialise();
  EXPECT_EQ(directory.openObject(u"LDAP://CN=Bob,ou=deep,OU=Staff,DC=Site,DC=example", 1, object),
            kOk);
  directory.uninitialise();
  EXPECT_EQ(directory.userInfo(u"bob", info), kNetSuccess);
  EXPECT_EQ(source->loads, 3);
  directory.uninitialise();
  // What was handed out lives on.
  std::u16string name;
  EXPECT_EQ(object->get(u"samaccountname", name), kOk);
  EXPECT_EQ(name, u"bob");
}

TEST_F(SnapshotDirectoryTest, AFailureIsRememberedForThePass) {
  source->status = kServerDown;
  directory.beginPass();
  UserInfo info;
  DomainModals modals;
  std::unique_ptr<DirectoryObject> object;
  std::unique_ptr<DirectorySearch> search;
  EXPECT_EQ(directory.userInfo(u"bob", info), kNetNoDomainController);
  EXPECT_EQ(directory.domainModals(modals), kNetNoDomainController);
  EXPECT_EQ(directory.getObject(u"LDAP://rootDSE", object), kServerDown);
  EXPECT_EQ(directory.getSearch(u"LDAP://DC=site,DC=example", search), kServerDown);
  EXPECT_EQ(directory.lastError().text, "no server");
  EXPECT_EQ(source->loads, 1);
  source->status = kOk;
  directory.beginPass();
  EXPECT_EQ(directory.domainModals(modals), kNetSuccess);
}

TEST_F(SnapshotDirectoryTest, Paths) {
  std::unique_ptr<DirectoryObject> object;
  std::unique_ptr<DirectorySearch> search;
  std::unique_ptr<DirectoryUser> user;
  std::u16string value;
  ASSERT_EQ(directory.getObject(u"LDAP://RootDse", object), kOk);
  EXPECT_EQ(object->get(u"DefaultNamingContext", value), kOk);
  EXPECT_EQ(value, u"DC=Site,DC=example");
  EXPECT_TRUE(failed(object->queryUser(user)));
  ASSERT_EQ(directory.openObject(u"LDAP://cn=doc\\, a,ou=staff,dc=site,dc=example", 1, object),
            kOk);
  ASSERT_EQ(object->queryUser(user), kOk);
  EXPECT_EQ(user->emailAddress(value), kOk);
  EXPECT_EQ(value, u"doc@site.example");
  EXPECT_EQ(user->lastName(value), kAdsPropertyNotFound);
  EXPECT_EQ(directory.openObject(u"LDAP://CN=Nobody,DC=Site,DC=example", 1, object), kNoSuchObject);
  EXPECT_EQ(directory.openObject(u"GC://rootDSE", 1, object), kAdsBadPathName);
  EXPECT_EQ(directory.openObject(u"LDAP://", 1, object), kAdsBadPathName);
  EXPECT_EQ(directory.openSearch(u"LDAP://DC=other,DC=example", 1, search), kNoSuchObject);
}

TEST_F(SnapshotDirectoryTest, Searches) {
  const std::u16string domain = u"LDAP://DC=site,DC=EXAMPLE";
  EXPECT_THAT(
      search(domain, u"(&(objectCategory=user)(samAccountName=\u00E4RZTE\\281\\29))", u"ADsPath"),
      ElementsAre(u"LDAP://CN=Doc\\, A,OU=Staff,DC=Site,DC=example"));
  // Every entry of that name, in the order of the source.
  EXPECT_THAT(search(domain, u"(samAccountName=BOB)", u"adspath"),
              ElementsAre(u"LDAP://CN=Bob,OU=Deep,OU=Staff,DC=Site,DC=example",
                          u"LDAP://CN=Bob 2,DC=Site,DC=example"));
  EXPECT_THAT(search(domain, u"(samAccountName=bo)", u"ADsPath"), testing::IsEmpty());
  EXPECT_THAT(
      search(domain, u"(&(objectCategory=person)(!userAccountControl:1.2.840.113556.1.4.803:=2))",
             u"samAccountName"),
      ElementsAre(u"\u00C4rzte(1)", u"bob"));
  const std::u16string staff = u"LDAP://OU=staff,DC=Site,DC=example";
  EXPECT_THAT(search(staff, u"(objectClass=*)", u"samAccountName"),
              ElementsAre(u"\u00C4rzte(1)", u"bob"));
  EXPECT_THAT(search(staff, u"(objectClass=*)", u"samAccountName", SearchScope::OneLevel),
              ElementsAre(u"\u00C4rzte(1)"));
  EXPECT_THAT(search(staff, u"(objectClass=*)", u"samAccountName", SearchScope::Base),
              testing::IsEmpty());
  std::unique_ptr<DirectorySearch> bad;
  std::unique_ptr<SearchRows> rows;
  ASSERT_EQ(directory.getSearch(domain, bad), kOk);
  EXPECT_EQ(bad->execute(u"(samAccountName=a", u"ADsPath", rows), kFilterUnknown);
}

TEST_F(SnapshotDirectoryTest, AccountData) {
  source->content.entries[0].cantChangePassword = true;
  source->content.entries[0].pwdLastSet = clock.now - 91 * test_support::kFileTimeDay - 15'000'000;
  source->content.entries[3].pwdLastSet = clock.now + 1;
  UserInfo info;
  ASSERT_EQ(directory.userInfo(u"\u00E4rzte(1)", info), kNetSuccess);
  EXPECT_EQ(info.flags, kPasswordCantChange);
  EXPECT_EQ(info.passwordAge, 91U * 86400 + 1);
  ASSERT_EQ(directory.userInfo(u"BOB", info), kNetSuccess);
  EXPECT_EQ(info.flags, kAccountDisabled | kPasswordDontExpire);
  ASSERT_EQ(directory.userInfo(u"pc$", info), kNetSuccess);
  EXPECT_EQ(info.passwordAge, 0U);
  EXPECT_EQ(directory.userInfo(u"nobody", info), kNetUserNotFound);
}

TEST_F(SnapshotDirectoryTest, ExpiryReachesMemoryOnlyWhenTheSourceTookIt) {
  UserInfo info;
  info.passwordExpired = 5;
  source->expireStatus = kNetAccessDenied;
  EXPECT_EQ(directory.setUserInfo(u"bob", info), kNetAccessDenied);
  UserInfo after;
  directory.userInfo(u"bob", after);
  EXPECT_EQ(after.passwordAge, 86400U);
  source->expireStatus = kNetSuccess;
  EXPECT_EQ(directory.setUserInfo(u"bob", info), kNetSuccess);
  directory.userInfo(u"bob", after);
  EXPECT_EQ(after.passwordAge, 0U);
  EXPECT_NE(after.passwordExpired, 0U);
  EXPECT_EQ(directory.setUserInfo(u"PC$", UserInfo()), kNetSuccess);
  EXPECT_EQ(directory.setUserInfo(u"nobody", info), kNetUserNotFound);
  EXPECT_THAT(source->expired, ElementsAre("bob", "bob"));
}

TEST_F(SnapshotDirectoryTest, DomainMaximumAge) {
  struct Case {
    std::int64_t stored;
    std::uint32_t seconds;
  };
  const Case cases[] = {
      {-42 * test_support::kFileTimeDay, 42 * 86400},
      {0, kPasswordNeverExpires},
      {std::numeric_limits<std::int64_t>::min(), kPasswordNeverExpires},
      {std::numeric_limits<std::int64_t>::min() + 1, kPasswordNeverExpires},
  };
  for (const Case& c : cases) {
    source->content.maxPwdAge = c.stored;
    directory.beginPass();
    DomainModals modals;
    EXPECT_EQ(directory.domainModals(modals), kNetSuccess);
    EXPECT_EQ(modals.maxPasswordAge, c.seconds) << c.stored;
  }
}

}  // namespace
