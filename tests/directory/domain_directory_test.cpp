// The steps of binding, looking a user up and listing the users: which calls are made with what, in
// which order, what is released, and which lines the debug log gets.
#include "directory/domain_directory.h"

#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/code_page.h"
#include "platform/files.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace platform;
using directory::DomainDirectory;
using directory::UserDirectoryData;
using testing::ElementsAre;
using testing::IsEmpty;

// One property, and the status it is read with.
struct Property {
  HResult status = kOk;
  std::u16string value;
};

struct Row {
  HResult moved = kOk;
  HResult read = kOk;
  SearchColumn column;
};

// What the directory answers; what it was asked.
struct Script {
  std::map<std::string, HResult> openStatus;  // by path
  HResult contextStatus = kOk;
  HResult executeStatus = kOk;
  HResult queryStatus = kOk;
  Property email{kOk, u"anna@site.example"}, first{kOk, u"Anna"}, last{kOk, u"Berg"};
  std::vector<Row> rows;
  std::vector<std::uint32_t> lastErrors;  // of each call, the last one repeated
  std::vector<std::string> calls;
  int alive = 0;  // objects that were handed out and not released
};

struct Counted {
  explicit Counted(Script& owner) : script(owner) { ++script.alive; }
  ~Counted() { --script.alive; }
  Script& script;
};

struct FakeUser final : DirectoryUser, Counted {
  using Counted::Counted;
  static HResult answer(const Property& property, std::u16string& value) {
    if (!failed(property.status)) value = property.value;
    return property.status;
  }
  HResult emailAddress(std::u16string& value) override { return answer(script.email, value); }
  HResult firstName(std::u16string& value) override { return answer(script.first, value); }
  HResult lastName(std::u16string& value) override { return answer(script.last, value); }
};

struct FakeObject final : DirectoryObject, Counted {
  using Counted::Counted;
  HResult get(const std::u16string& attribute, std::u16string& value) override {
    script.calls.push_back("get " + utf16ToUtf8(attribute));
    value = u"DC=site";
    return script.contextStatus;
  }
  HResult queryUser(std::unique_ptr<DirectoryUser>& user) override {
    if (!failed(script.queryStatus)) user = std::make_unique<FakeUser>(script);
    return script.queryStatus;
  }
};

struct FakeRows final : SearchRows, Counted {
  using Counted::Counted;
  std::size_t read = 0;
  HResult next() override {
    return read == script.rows.size() ? kAdsNoMoreRows : script.rows[read++].moved;
  }
  HResult column(const std::u16string&, SearchColumn& column) override {
    column = script.rows[read - 1].column;
    return script.rows[read - 1].read;
  }
};

struct FakeSearch final : DirectorySearch, Counted {
  using Counted::Counted;
  HResult setScope(SearchScope scope) override {
    script.calls.push_back("scope " + std::to_string(static_cast<int>(scope)));
    return kOk;
  }
  HResult setPageSize(std::uint32_t rows) override {
    script.calls.push_back("page " + std::to_string(rows));
    return kOk;
  }
  HResult execute(const std::u16string& filter, const std::u16string& attribute,
                  std::unique_ptr<SearchRows>& rows) override {
    script.calls.push_back("execute " + utf16ToUtf8(filter) + " " + utf16ToUtf8(attribute));
    if (!failed(script.executeStatus)) rows = std::make_unique<FakeRows>(script);
    return script.executeStatus;
  }
};

struct FakeAccess final : DirectoryAccess {
  explicit FakeAccess(Script& owner) : script(owner) {}
  Script& script;

  template <typename Made, typename Base>
  HResult open(const std::string& call, const std::u16string& path, std::unique_ptr<Base>& made) {
    const std::string name = utf16ToUtf8(path);
    script.calls.push_back(call + " " + name);
    const HResult status = script.openStatus.count(name) != 0 ? script.openStatus[name] : kOk;
    if (!failed(status)) made = std::make_unique<Made>(script);
    return status;
  }
  HResult initialise() override {
    script.calls.push_back("initialise");
    return kOk;
  }
  void uninitialise() override { script.calls.push_back("uninitialise"); }
  HResult openObject(const std::u16string& path, std::uint32_t flags,
                     std::unique_ptr<DirectoryObject>& object) override {
    return open<FakeObject>("object" + std::to_string(flags), path, object);
  }
  HResult openSearch(const std::u16string& path, std::uint32_t flags,
                     std::unique_ptr<DirectorySearch>& search) override {
    return open<FakeSearch>("search" + std::to_string(flags), path, search);
  }
  HResult getObject(const std::u16string& path, std::unique_ptr<DirectoryObject>& object) override {
    return open<FakeObject>("getObject", path, object);
  }
  HResult getSearch(const std::u16string& path, std::unique_ptr<DirectorySearch>& search) override {
    return open<FakeSearch>("getSearch", path, search);
  }
  DirectoryError lastError() override {
    const std::uint32_t code = script.lastErrors.front();
    if (script.lastErrors.size() > 1) script.lastErrors.erase(script.lastErrors.begin());
    return {code, "", ""};
  }
};

class DomainDirectoryTest : public testing::Test {
 protected:
  DomainDirectoryTest() { createDirectory("logfiles"); }
  ~DomainDirectoryTest() override {
    domain.unbindDomain();
    EXPECT_EQ(script.alive, 0) << "not released";
  }

  std::string logText() {
    std::string text;
    readWholeFile(config::kDebugLogFile, text);
    removeFile(config::kDebugLogFile);
    return text;
  }
  static Row path(const std::u16string& value) {
    return {kOk, kOk, {AdsType::CaseIgnoreString, value}};
  }
  // The look-up over the persistent binding of a user with one row; the log has its lines only.
  UserDirectoryData lookUp(const std::u16string& name = u"anna") {
    domain.bindDomain();
    logText();
    script.calls.clear();
    UserDirectoryData data{"old", "old", "old", "kept"};
    status = domain.getEmailBound(name, data);
    return data;
  }

  test_support::TempDir directory;
  Script script;
  FakeAccess access{script};
  config::DebugLog log{true};
  DomainDirectory domain{access, log};
  HResult status = kOk;
};

const std::string kTrace =
    "    getUserEmail() begin**\n    get email address\n    get first name\n"
    "    get last name\n    getUserEmail() end**\n";

TEST_F(DomainDirectoryTest, BindingOpensTheDefaultNamingContext) {
  EXPECT_EQ(domain.bindDomain(), 1);
  EXPECT_THAT(script.calls, ElementsAre("initialise", "object1 LDAP://rootDSE",
                                        "get defaultNamingContext", "search1 LDAP://DC=site"));
  EXPECT_EQ(script.alive, 1);
  domain.unbindDomain();
  EXPECT_EQ(script.alive, 0);
  EXPECT_EQ(script.calls.back(), "uninitialise");
  EXPECT_EQ(logText(), "");
}

TEST_F(DomainDirectoryTest, AFailedBindingIsLoggedEvenWithoutDebugging) {
  log.setEnabled(false);
  script.openStatus["LDAP://rootDSE"] = kServerDown;
  EXPECT_EQ(domain.bindDomain(), 0);
  EXPECT_EQ(logText(), "Could not bind to the domain.\n");
  script.openStatus.clear();
  script.contextStatus = kAdsPropertyNotFound;
  EXPECT_EQ(domain.bindDomain(), 0);
  EXPECT_EQ(logText(), "Could not bind to the domain.\n");
  // But not when only the context cannot be opened.
  script.contextStatus = kOk;
  script.openStatus["LDAP://DC=site"] = kNoSuchObject;
  EXPECT_EQ(domain.bindDomain(), 0);
  EXPECT_EQ(logText(), "");
}

TEST_F(DomainDirectoryTest, ALookUpFindsTheNameAsItself) {
  script.rows = {path(u"LDAP://CN=a")};
  testing::internal::CaptureStdout();
  const UserDirectoryData data = lookUp(u"a(b)*\\\u00E4");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Found User.\nADsPath: LDAP://CN=a\r\n");
  EXPECT_THAT(
      script.calls,
      ElementsAre("scope 2",
                  "execute (&(objectCategory=user)(samAccountName=a\\28b\\29\\2a\\5c\u00E4))"
                  " ADsPath",
                  "object1 LDAP://CN=a"));
  EXPECT_EQ(data.email, "anna@site.example");
  EXPECT_EQ(data.firstName, "Anna");
  EXPECT_EQ(data.lastName, "Berg");
  EXPECT_EQ(logText(), kTrace);
}

TEST_F(DomainDirectoryTest, AUserWhoIsNotFound) {
  const Row rows[] = {
      {kAdsNoMoreRows, kOk, {}},
      {kServerDown, kOk, {}},
      {kOk, kNoSuchObject, {}},                                    // no column
      {kOk, kOk, {AdsType::CaseIgnoreString, u"LDAP://CN=gone"}},  // not to be opened
  };
  script.openStatus["LDAP://CN=gone"] = kNoSuchObject;
  for (const Row& row : rows) {
    script.rows = {row};
    const UserDirectoryData data = lookUp();
    EXPECT_EQ(status, kFail);
    EXPECT_EQ(data.email + data.firstName + data.lastName, "none");
    EXPECT_EQ(logText(),
              "    User anna not Found.\n"
              "    FindUserByName failed with the following HR: 80004005\n");
  }
  script.executeStatus = kFilterUnknown;
  lookUp();
  EXPECT_EQ(status, kFail);
}

TEST_F(DomainDirectoryTest, WithoutABindingOrANameNothingIsAsked) {
  UserDirectoryData data{"old", "old", "old", "kept"};
  domain.getEmailBound(u"", data);
  domain.getEmail(u"", data);
  EXPECT_EQ(data.email, "old");
  EXPECT_THAT(script.calls, IsEmpty());
  EXPECT_EQ(domain.getEmailBound(u"anna", data), kInvalidArgument);
  EXPECT_EQ(logText(),
            "    User anna not Found.\n"
            "    FindUserByName failed with the following HR: 80070057\n");
}

TEST_F(DomainDirectoryTest, OfSeveralMatchesTheLastOneOpenedIsTheUser) {
  script.rows = {path(u"LDAP://CN=a"), {kOk, kNoSuchObject, {}}, path(u"LDAP://CN=b")};
  lookUp();
  EXPECT_EQ(status, kOk);
  EXPECT_EQ(script.calls.back(), "object1 LDAP://CN=b");
  // The status is that of the last step, though a user was found.
  script.rows = {path(u"LDAP://CN=a"), path(u"LDAP://CN=gone")};
  script.openStatus["LDAP://CN=gone"] = kNoSuchObject;
  EXPECT_EQ(lookUp().email, "none");
  EXPECT_EQ(status, kNoSuchObject);
}

TEST_F(DomainDirectoryTest, EachPropertyIsReadWhateverBecomesOfTheOthers) {
  const std::string begin = "    getUserEmail() begin**\n    get email address\n";
  script.rows = {path(u"LDAP://CN=a")};
  script.email.status = kAdsPropertyNotFound;
  script.first.status = kServerDown;
  UserDirectoryData data = lookUp();
  EXPECT_EQ(data.email, "none");
  EXPECT_EQ(data.firstName, "");
  EXPECT_EQ(data.lastName, "Berg");
  EXPECT_EQ(data.domain, "kept");
  EXPECT_EQ(logText(), begin +
                           "    EmailAddress property not found.\n    get first name\n"
                           "    FirstName failed with HR: 8007203a\n    get last name\n"
                           "    getUserEmail() end**\n");
  // Without a last name the address does not count.
  script.email.status = script.first.status = kOk;
  script.last.status = kAdsPropertyNotFound;
  data = lookUp();
  EXPECT_EQ(data.email, "none");
  EXPECT_EQ(data.firstName, "Anna");
  EXPECT_EQ(status, kAdsPropertyNotFound);
  script.queryStatus = kFail;
  EXPECT_EQ(lookUp().email, "none");
}

TEST_F(DomainDirectoryTest, AFieldHoldsAtMost255BytesAndNoHalfCharacter) {
  script.rows = {path(u"LDAP://CN=a")};
  script.first.value = std::u16string(300, u'x');
  script.last.value = std::u16string(300, u'\u00E4');
  script.email.value = std::u16string(u"a@b\0c", 5);
  const UserDirectoryData data = lookUp();
  EXPECT_EQ(data.firstName, std::string(255, 'x'));
  EXPECT_EQ(data.lastName.size(), 254U);
  EXPECT_EQ(data.email, "a@b");
}

TEST_F(DomainDirectoryTest, LookUpsWithABindingOfTheirOwn) {
  script.rows = {path(u"LDAP://CN=a")};
  UserDirectoryData data;
  EXPECT_EQ(domain.getEmail(u"anna", data), kOk);
  EXPECT_EQ(data.email, "anna@site.example");
  EXPECT_EQ(script.calls.front() + ", " + script.calls.back(), "initialise, uninitialise");
  EXPECT_EQ(script.alive, 0);
  EXPECT_EQ(logText(),
            "  getEmail() begin**\n    wszUsername=anna\n    initialize COM\n"
            "    find user by name\n    call GetUserEmail()\n" +
                kTrace + "  getEmail() end**\n");
  EXPECT_EQ(domain.getEmail2(u"anna", data), kOk);
  EXPECT_EQ(logText(), kTrace + "  getEmail2() end**\n");

  script.openStatus["LDAP://rootDSE"] = kLogonFailure;
  EXPECT_EQ(domain.getEmail(u"anna", data), kLogonFailure);
  EXPECT_EQ(data.email, "none");
  EXPECT_EQ(logText(),
            "  getEmail() begin**\n    wszUsername=anna\n    initialize COM\n"
            "    Not Found. Could not bind to the domain.\n  getEmail() end**\n");
  domain.getEmail2(u"anna", data);
  EXPECT_EQ(logText(), "Not Found. Could not bind to the domain.\n  getEmail2() end**\n");
  EXPECT_EQ(script.calls.back(), "uninitialise");
}

TEST_F(DomainDirectoryTest, TheUsersListGoesOnWhileThereAreMorePages) {
  const Row endOfPage{kAdsNoMoreRows, kOk, {}};
  script.rows = {path(u"anna"), {kOk, kFail, {}},      {kOk, kOk, {AdsType::DnString, u"CN=x"}},
                 endOfPage,     path(u"two\nlines"),   path(u"\u00C4rzte"),
                 endOfPage,     path(u"after the end")};
  script.lastErrors = {kErrorMoreDirectoryData, 0};
  writeWholeFile(directory::kDomainUsersFile, "old");
  domain.writeDomainUsersList();
  EXPECT_THAT(script.calls,
              ElementsAre("initialise", "getObject LDAP://RootDse", "get DefaultNamingContext",
                          "getSearch LDAP://DC=site", "scope 2", "page 100000",
                          "execute (&(objectCategory=person)(objectClass=user)"
                          "(!userAccountControl:1.2.840.113556.1.4.803:=2)) samAccountName",
                          "uninitialise"));
  std::string list;
  readWholeFile("pwsentry_pro_domain_users.txt", list);
  EXPECT_EQ(list, "anna\n\u00C4rzte\n");
  EXPECT_EQ(logText(), "-begin getRootDse\n-end getRootDse\n");

  // A failure ends it.
  script.rows = {path(u"one"), {kServerDown, kOk, {}}, path(u"two")};
  domain.writeDomainUsersList();
  readWholeFile(directory::kDomainUsersFile, list);
  EXPECT_EQ(list, "one\n");
  script.openStatus["LDAP://DC=site"] = kServerDown;
  domain.writeDomainUsersList();
  readWholeFile(directory::kDomainUsersFile, list);
  EXPECT_EQ(list, "");
  EXPECT_EQ(script.calls.back(), "uninitialise");
}

}  // namespace
