// The steps of binding, looking a user up and listing the users: which calls are made with what, in
// which order, what is released, and which lines the debug log gets: the transcripts have it.
#include "directory/domain_directory.h"

#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/unicode.h"
#include "config/pass_files.h"
#include "platform/system/files.h"
#include "platform/text/code_page.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace {

using namespace platform;
using namespace std::string_literals;
using directory::DomainDirectory;
using directory::UserDirectoryData;

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
    const char16_t* answer = attribute == u"manager" ? u"CN=A/B\\, C,DC=site" : u"DC=site";
    return access.note("get " + base::utf16ToUtf8(attribute), answer, value);
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
  HResult execute(const Text& filter, const std::vector<Text>& attributes,
                  Owned<SearchRows>& rows) override {
    Text call = u"find " + filter;
    for (const Text& attribute : attributes) call += u" " + attribute;
    return access.open(base::utf16ToUtf8(call), rows);
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
  // Adds to the transcript what a step does: its calls, its lines in the log, and its result, which
  // is the problem it reports and the user's data.
  template <typename Step>
  void note(const std::string& title, Step step) {
    access.calls.clear();
    UserDirectoryData data{"old", "old", "old", "kept"};
    const std::string problem = step(data);
    transcript += "== " + title + '\n';
    for (const std::string& call : access.calls) transcript += call + '\n';
    transcript += logText() + "-> " + problem + '|' + data.email + '|' + data.firstName + '|' +
                  data.lastName + '|' + data.domain + '\n';
    if (!data.manager.empty()) {
      transcript += data.displayName + '|' + data.preferredLanguage + "|manager " +
                    utf16ToAnsi(data.manager) + '|' + data.managerName + '|' + data.managerEmail +
                    '\n';
    }
    transcript += '\n';
  }
  void lookUp(const std::string& title, const std::vector<Row>& rows, const Text& name = u"anna") {
    access.rows = rows;
    note(title, [&](UserDirectoryData& data) {
      domain.getEmailBound(name, data);
      return "";
    });
  }
  void bind(const std::string& title) {
    note(title, [this](UserDirectoryData&) {
      const bool bound = domain.bindDomain() == 1;
      return (bound ? "bound" : "not bound: ") + domain.bindError();
    });
  }
  // The two look-ups that bind and unbind by themselves.
  void lookUpUnbound(const std::string& title, const Text& name) {
    for (auto get : {&DomainDirectory::getEmail, &DomainDirectory::getEmail2}) {
      note(title, [&](UserDirectoryData& data) {
        (domain.*get)(name, data);
        return "";
      });
      EXPECT_EQ(access.alive, 0);
    }
  }
  void list(const std::string& title, const std::vector<Row>& rows) {
    access.rows = rows;
    note(title, [this](UserDirectoryData&) { return domain.writeDomainUsersList(); });
    transcript += test_support::readText("pwsentry_pro_domain_users.txt") + '\n';
  }
  void expectTranscript(const std::string& file) const {
    EXPECT_EQ(transcript, test_support::readBytes(TEST_DATA + file));
  }

  test_support::TempDir directory;
  FakeAccess access;
  config::DebugLog log{true};
  DomainDirectory domain{access, log};
  std::string transcript;
};

const Row kUser{kOk, kOk, {AdsType::CaseIgnoreString, u"LDAP://CN=a"}};

TEST_F(DomainDirectoryTest, Binds) {
  bind("a domain that answers");
  log = config::DebugLog(false);
  access.status["1 search LDAP://DC=site"] = kServerDown;
  bind("no search: the domain itself did answer");
  access.status["get defaultNamingContext"] = kServerDown;
  bind("no naming context: logged even without debugging");
  access.status["1 LDAP://rootDSE"] = kServerDown;
  access.words = "no server";
  bind("no root entry, and the server's words for it");
  expectTranscript("bindings.txt");
}

TEST_F(DomainDirectoryTest, LooksUsersUp) {
  const Row unreadable{kOk, kNoSuchObject}, gone = path(u"LDAP://CN=gone");
  access.status["1 LDAP://CN=gone"] = kNoSuchObject;
  domain.bindDomain();
  testing::internal::CaptureStdout();
  lookUp("a name is looked for as itself", {kUser}, u"a(b)*\\\u00E4");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Found User.\nADsPath: LDAP://CN=a\r\n");
  lookUp("nobody", {{kAdsNoMoreRows}});
  lookUp("a search that breaks off", {{kServerDown}});
  lookUp("a path that cannot be read", {unreadable});
  lookUp("a user who is gone by now", {gone});
  lookUp("of several the last one opened", {kUser, unreadable, path(u"LDAP://CN=b")});
  lookUp("the status is that of the last step, though a user was found", {kUser, gone});
  access.status = {{"email", kAdsPropertyNotFound}, {"first", kServerDown}};
  lookUp("each property is read whatever becomes of the others", {kUser});
  access.status = {{"last", kAdsPropertyNotFound}};
  lookUp("without a last name the address does not count", {kUser});
  access.status.clear();
  access.email = u"a@b.example\r\n\"x";
  lookUp("what would break a line of the logs is no address", {kUser});
  lookUp("an empty name does nothing at all", {kUser}, u"");
  domain.unbindDomain();
  lookUp("no binding", {kUser});
  lookUpUnbound("an empty name does nothing at all", u"");
  access.email = u"a@b.example";
  access.rows = {kUser};
  lookUpUnbound("a binding of its own", u"anna");
  access.status["1 LDAP://rootDSE"] = kLogonFailure;
  lookUpUnbound("a binding of its own that fails", u"anna");
  access.status.clear();
  domain.readDetails(true);
  domain.bindDomain();
  lookUp("with details, and a manager", {kUser});
  lookUp("a manager is read once", {kUser});
  domain.unbindDomain();
  domain.bindDomain();
  access.status = {{"get displayName", kAdsPropertyNotFound},
                   {"1 LDAP://CN=A\\/B\\, C,DC=site", kNoSuchObject}};
  lookUp("a manager who cannot be read", {kUser});
  expectTranscript("look_ups.txt");
  // A field holds 255 bytes and no half character.
  access.status.clear();
  access.givenName = Text(300, u'\u00E4');
  UserDirectoryData data;
  domain.getEmail(u"anna", data);
  const std::size_t letter = utf16ToAnsi(u"\u00E4").size();
  EXPECT_EQ(data.firstName.size(), 255 / letter * letter);
}

TEST_F(DomainDirectoryTest, ListsTheUsers) {
  const Row endOfPage{kAdsNoMoreRows}, nameless{kOk, kAdsColumnNotSet};
  access.lastErrors = {kErrorMoreDirectoryData, 0};
  list("goes on while there are more pages",
       {path(u"anna"), nameless, path(u"x", AdsType::DnString), endOfPage, path(u"a\nb"),
        path(u"\u00C4rzte"), endOfPage, path(u"c")});
  const std::string find = access.calls[access.calls.size() - 2];
  list("a search that breaks off", {path(u"one"), {kServerDown}, path(u"two")});
  list("a name that cannot be read", {path(u"one"), {kOk, kServerDown}, path(u"two")});
  for (const std::string& call :
       {find, "search LDAP://DC=site"s, "get DefaultNamingContext"s, "LDAP://RootDse"s}) {
    access.status = {{call, kLogonFailure}};
    list("refused: " + call, {path(u"one")});
  }
  removeFile("pwsentry_pro_domain_users.txt");
  createDirectory("pwsentry_pro_domain_users.txt");
  list("a file that cannot be written", {path(u"one")});
  expectTranscript("users_lists.txt");
}

}  // namespace
