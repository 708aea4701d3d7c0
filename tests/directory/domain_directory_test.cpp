// The steps of binding, looking a user up and listing the users: which calls are made with what, in
// which order, what is released, and which lines the debug log gets.
#include "directory/domain_directory.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/unicode.h"
#include "config/pass_files.h"
#include "platform/system/files.h"
#include "platform/text/code_page.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace {

using namespace platform;
using directory::DomainDirectory;
using directory::UserDirectoryData;
using testing::ElementsAre;

template <typename T>
using Owned = std::unique_ptr<T>;
using Text = std::u16string;

struct Row {
  HResult moved = kOk, read = kOk;
  SearchColumn column{};
};

// A directory that notes what it is asked, and answers what the test sets.
struct FakeAccess final : DirectoryAccess {
  std::map<std::string, HResult> status;  // of a call; kOk when it is not here
  std::u16string email = u"a@b.example";
  Text givenName = u"Anna";
  std::vector<Row> rows;
  std::vector<std::uint32_t> lastErrors;  // of each call
  std::string words;                      // of any of them
  std::vector<std::string> calls;
  int alive = 0;  // handles that were given out and not released

  HResult note(const std::string& call) {
    calls.push_back(call);
    return status.count(call) != 0 ? status[call] : kOk;
  }
  HResult note(const std::string& call, const Text& answer, Text& value) {
    const HResult result = note(call);
    if (!failed(result)) value = answer;
    return result;
  }
  template <typename Base>
  HResult open(const std::string& call, Owned<Base>& handle);

  HResult initialise() override { return note("initialise"); }
  void uninitialise() override { note("uninitialise"); }
  HResult openObject(const Text& path, std::uint32_t flags, Owned<DirectoryObject>& got) override {
    return open(std::to_string(flags) + " " + base::utf16ToUtf8(path), got);
  }
  HResult openSearch(const Text& path, std::uint32_t flags, Owned<DirectorySearch>& got) override {
    return open(std::to_string(flags) + " search " + base::utf16ToUtf8(path), got);
  }
  HResult getObject(const Text& path, Owned<DirectoryObject>& got) override {
    return open(base::utf16ToUtf8(path), got);
  }
  HResult getSearch(const Text& path, Owned<DirectorySearch>& got) override {
    return open("search " + base::utf16ToUtf8(path), got);
  }
  DirectoryError lastError() override {
    if (lastErrors.empty()) return {0, words, ""};
    const std::uint32_t code = lastErrors.front();
    lastErrors.erase(lastErrors.begin());
    return {code, words, ""};
  }
};

// Anything that can be opened.
struct Handle final : DirectoryObject, DirectoryUser, DirectorySearch, SearchRows {
  explicit Handle(FakeAccess& owner) : access(owner) { ++access.alive; }
  ~Handle() override { --access.alive; }
  FakeAccess& access;
  std::size_t row = 0;

  HResult get(const Text& attribute, Text& value) override {
    return access.note("get " + base::utf16ToUtf8(attribute), u"DC=site", value);
  }
  HResult queryUser(Owned<DirectoryUser>& user) override { return access.open("user", user); }
  HResult emailAddress(Text& value) override { return access.note("email", access.email, value); }
  HResult firstName(Text& value) override { return access.note("first", access.givenName, value); }
  HResult lastName(Text& value) override { return access.note("last", u"Berg", value); }
  HResult setScope(SearchScope scope) override {
    return access.note("scope " + std::to_string(static_cast<int>(scope)));
  }
  HResult setPageSize(std::uint32_t size) override {
    return access.note("page " + std::to_string(size));
  }
  HResult execute(const Text& filter, const Text& attribute, Owned<SearchRows>& rows) override {
    return access.open("find " + base::utf16ToUtf8(filter + u" " + attribute), rows);
  }
  HResult next() override {
    return row == access.rows.size() ? kAdsNoMoreRows : access.rows[row++].moved;
  }
  HResult column(const Text&, SearchColumn& column) override {
    column = access.rows[row - 1].column;
    return access.rows[row - 1].read;
  }
};

template <typename Base>
HResult FakeAccess::open(const std::string& call, Owned<Base>& handle) {
  const HResult result = note(call);
  if (!failed(result)) handle = std::make_unique<Handle>(*this);
  return result;
}

class DomainDirectoryTest : public testing::Test {
 protected:
  DomainDirectoryTest() { createDirectory("logfiles"); }
  ~DomainDirectoryTest() override {
    domain.unbindDomain();
    EXPECT_EQ(access.alive, 0) << "not released";
    EXPECT_EQ(access.calls.back(), "uninitialise");
  }

  // The text of the debug log since the last call.
  std::string logText() {
    const std::string text = test_support::readText(config::kDebugLogFile);
    removeFile(config::kDebugLogFile);
    return text;
  }
  static Row path(const Text& value, AdsType type = AdsType::CaseIgnoreString) {
    return {kOk, kOk, {type, value}};
  }
  // Over the persistent binding; log and calls are then of the look-up alone.
  UserDirectoryData lookUp(const std::vector<Row>& rows, const Text& name = u"anna") {
    access.rows = rows;
    domain.bindDomain();
    logText();
    access.calls.clear();
    UserDirectoryData data{"old", "old", "old", "kept"};
    domain.getEmailBound(name, data);
    return data;
  }
  static std::string fields(const UserDirectoryData& data) {
    return data.email + "|" + data.firstName + "|" + data.lastName + "|" + data.domain;
  }
  // What is wrong with the list, then the list.
  std::string usersList() {
    const std::string problem = domain.writeDomainUsersList();
    return problem + "|" + test_support::readText("pwsentry_pro_domain_users.txt");
  }

  test_support::TempDir directory;
  FakeAccess access;
  config::DebugLog log{true};
  DomainDirectory domain{access, log};
};

const Row kUser{kOk, kOk, {AdsType::CaseIgnoreString, u"LDAP://CN=a"}};
const std::string kTrace =
    "    getUserEmail() begin**\n    get email address\n    get first name\n"
    "    get last name\n    getUserEmail() end**\n";

TEST_F(DomainDirectoryTest, AFailedBindingIsLoggedEvenWithoutDebugging) {
  EXPECT_EQ(domain.bindDomain(), 1);
  EXPECT_THAT(access.calls, ElementsAre("initialise", "1 LDAP://rootDSE",
                                        "get defaultNamingContext", "1 search LDAP://DC=site"));
  log = config::DebugLog(false);
  EXPECT_EQ(domain.bindError(), "");
  const std::pair<const char*, const char*> cases[] = {
      {"1 search LDAP://DC=site", ""},  // the domain itself did answer
      {"get defaultNamingContext", "Could not bind to the domain.\n"},
      {"1 LDAP://rootDSE", "Could not bind to the domain.\n"},
  };
  for (const auto& [call, line] : cases) {
    access.status[call] = kServerDown;
    EXPECT_EQ(domain.bindDomain(), 0);
    EXPECT_EQ(logText(), line);
    EXPECT_EQ(domain.bindError(), "error 8007203a");
  }
  access.words = "no server";
  domain.bindDomain();
  EXPECT_EQ(domain.bindError(), "no server");
}

TEST_F(DomainDirectoryTest, ALookUpFindsTheNameAsItself) {
  testing::internal::CaptureStdout();
  const UserDirectoryData data = lookUp({kUser}, u"a(b)*\\\u00E4");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Found User.\nADsPath: LDAP://CN=a\r\n");
  EXPECT_THAT(
      access.calls,
      ElementsAre("scope 2",
                  "find (&(objectCategory=user)(samAccountName=a\\28b\\29\\2a\\5c\u00E4)) ADsPath",
                  "1 LDAP://CN=a", "user", "email", "first", "last"));
  EXPECT_EQ(fields(data), "a@b.example|Anna|Berg|kept");
  EXPECT_EQ(logText(), kTrace);
}

TEST_F(DomainDirectoryTest, AUserWhoIsNotFound) {
  const std::string notFound =
      "    User anna not Found.\n    FindUserByName failed with the following HR: ";
  access.status["1 LDAP://CN=gone"] = kNoSuchObject;
  const Row rows[] = {
      {kAdsNoMoreRows}, {kServerDown}, {kOk, kNoSuchObject}, path(u"LDAP://CN=gone")};
  for (const Row& row : rows) {
    EXPECT_EQ(fields(lookUp({row})), "none|||kept");
    EXPECT_EQ(logText(), notFound + "80004005\n");
  }
  domain.unbindDomain();
  UserDirectoryData data{"old", "old", "old", "kept"};
  domain.getEmailBound(u"", data);
  domain.getEmail(u"", data);
  EXPECT_EQ(data.email + logText(), "old");  // an empty name does nothing at all
  domain.getEmailBound(u"anna", data);
  EXPECT_EQ(data.email + logText(), "none" + notFound + "80070057\n");
}

TEST_F(DomainDirectoryTest, OfSeveralMatchesTheLastOneOpenedIsTheUser) {
  lookUp({kUser, {kOk, kNoSuchObject}, path(u"LDAP://CN=b")});
  EXPECT_THAT(access.calls, testing::Contains("1 LDAP://CN=b"));
  EXPECT_EQ(logText(), kTrace);
  // The status is that of the last step, though a user was found.
  access.status["1 LDAP://CN=b"] = kNoSuchObject;
  EXPECT_EQ(lookUp({kUser, path(u"LDAP://CN=b")}).email, "none");
}

TEST_F(DomainDirectoryTest, EachPropertyIsReadWhateverBecomesOfTheOthers) {
  access.status = {{"email", kAdsPropertyNotFound}, {"first", kServerDown}};
  EXPECT_EQ(fields(lookUp({kUser})), "none||Berg|kept");
  EXPECT_EQ(logText(),
            "    getUserEmail() begin**\n    get email address\n"
            "    EmailAddress property not found.\n    get first name\n"
            "    FirstName failed with HR: 8007203a\n    get last name\n"
            "    getUserEmail() end**\n");
  // Without a last name the address does not count. Fields hold 255 bytes, no half character.
  access.status = {{"last", kAdsPropertyNotFound}};
  access.givenName = std::u16string(300, u'\u00E4');
  const UserDirectoryData data = lookUp({kUser});
  EXPECT_EQ(data.email, "none");
  const std::size_t letter = utf16ToAnsi(u"\u00E4").size();
  EXPECT_EQ(data.firstName.size(), 255 / letter * letter);
  // What would break a line of the logs is no address.
  access.status.clear();
  access.email = u"a@b.example\r\n\"x";
  EXPECT_EQ(lookUp({kUser}).email, "none");
}

TEST_F(DomainDirectoryTest, LookUpsWithABindingOfTheirOwn) {
  const std::string begin = "  getEmail() begin**\n    wszUsername=anna\n    initialize COM\n";
  access.rows = {kUser};
  UserDirectoryData data;
  domain.getEmail(u"anna", data);
  EXPECT_EQ(data.email, "a@b.example");
  EXPECT_EQ(logText(), begin + "    find user by name\n    call GetUserEmail()\n" + kTrace +
                           "  getEmail() end**\n");
  domain.getEmail2(u"anna", data);
  EXPECT_EQ(logText(), kTrace + "  getEmail2() end**\n");
  EXPECT_EQ(access.alive, 0);
  EXPECT_EQ(access.calls.front() + ", " + access.calls.back(), "initialise, uninitialise");
  access.status["1 LDAP://rootDSE"] = kLogonFailure;
  domain.getEmail(u"anna", data);
  domain.getEmail2(u"anna", data);
  EXPECT_EQ(logText(), begin +
                           "    Not Found. Could not bind to the domain.\n  getEmail() end**\n"
                           "Not Found. Could not bind to the domain.\n  getEmail2() end**\n");
}

TEST_F(DomainDirectoryTest, TheUsersListGoesOnWhileThereAreMorePages) {
  const Row endOfPage{kAdsNoMoreRows};
  const Row nameless{kOk, kAdsColumnNotSet};
  access.rows = {path(u"anna"), nameless, path(u"x", AdsType::DnString), endOfPage};
  for (const Row& row : {path(u"a\nb"), path(u"\u00C4rzte"), endOfPage, path(u"c")}) {
    access.rows.push_back(row);
  }
  access.lastErrors = {kErrorMoreDirectoryData, 0};
  EXPECT_EQ(usersList(), "|anna\n\u00C4rzte\n");
  EXPECT_EQ(logText(), "-begin getRootDse\n-end getRootDse\n");
  EXPECT_THAT(access.calls,
              ElementsAre("initialise", "LDAP://RootDse", "get DefaultNamingContext",
                          "search LDAP://DC=site", "scope 2", "page 100000",
                          "find (&(objectCategory=person)(objectClass=user)"
                          "(!userAccountControl:1.2.840.113556.1.4.803:=2)) samAccountName",
                          "uninitialise"));
}

TEST_F(DomainDirectoryTest, AUsersListThatIsNotWholeIsAProblem) {
  const std::string problem =
      "pwsentry_pro_domain_users.txt: the users of the domain cannot be listed: error ";
  for (const Row& row : {Row{kServerDown}, Row{kOk, kServerDown}}) {
    access.rows = {path(u"one"), row, path(u"two")};
    EXPECT_EQ(usersList(), problem + "8007203a|one\n");
  }
  for (const char* call : {access.calls[access.calls.size() - 2].c_str(), "search LDAP://DC=site",
                           "get DefaultNamingContext", "LDAP://RootDse"}) {
    access.status = {{call, kLogonFailure}};
    EXPECT_EQ(usersList(), problem + "8007052e|") << call;
  }
  removeFile("pwsentry_pro_domain_users.txt");
  createDirectory("pwsentry_pro_domain_users.txt");
  EXPECT_EQ(domain.writeDomainUsersList(), "pwsentry_pro_domain_users.txt cannot be written");
}

}  // namespace
