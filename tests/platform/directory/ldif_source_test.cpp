// LDIF as tools and people write it, its faults, and the forced expiry in the file.
#include "platform/file/ldif_source.h"

#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/file/byte_lines.h"
#include "platform/files.h"
#include "tests/support/temp_dir.h"

namespace {

using platform::DirectoryEntry;
using platform::DirectoryError;
using platform::DirectorySnapshot;
using platform::LdifSource;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kFile = "domain.ldif";
const std::string kHead =
    "dn: DC=site,DC=example\nobjectClass: domainDNS\nmaxPwdAge: -36288000000000\n\n";

std::string user(const std::string& name, const std::string& lines = "") {
  return "dn: CN=" + name + ",DC=site,DC=example\nobjectClass: user\nsAMAccountName: " + name +
         "\n" + lines + "\n";
}

class LdifSourceTest : public testing::Test {
 protected:
  DirectorySnapshot load(const std::string& text) {
    EXPECT_TRUE(platform::writeWholeFile(kFile, text));
    DirectorySnapshot snapshot;
    status = LdifSource(kFile).load(snapshot, error);
    return snapshot;
  }
  std::vector<std::string> names(const DirectorySnapshot& snapshot) {
    std::vector<std::string> result;
    for (const DirectoryEntry& entry : snapshot.entries) result.push_back(entry.logonName);
    return result;
  }
  std::string fileText() {
    std::string text;
    platform::readWholeFile(kFile, text);
    return text;
  }

  test_support::TempDir directory;
  DirectoryError error;
  platform::HResult status = platform::kOk;
};

TEST_F(LdifSourceTest, ReadsEveryNotationOfARecord) {
  const DirectorySnapshot snapshot = load(
      "\xEF\xBB\xBFversion: 1\r\n# a comment\r\n  that goes on\r\n\r\n\r\n"
      "dn: CN=Anna Berg,\r\n OU=Staff,DC=site,DC=example\r\nchangetype: add\r\n"
      "objectclass: top\r\nOBJECTCLASS: user\r\n"
      "sAMAcco\r\n unt\r\n Name: anna\r\ngivenName:: w4Rubmk=\r\nsn;lang-de:B\xF6ll\r\n"
      "# between\r\nmail:    anna@site.example\r\nmail: second@site.example\r\n"
      "userAccountControl: -2147483136\r\npwdLastSet:134000000000000000 \r\n"
      "photo:< file:///nobody/wants/it\r\nthumbnail:: !!!\r\n\r\n"
      "# search reference\r\nref: ldap://elsewhere\r\n\r\n"
      "dn: DC=zones,DC=site,DC=example\r\nobjectClass: domainDNS\r\n\r\n"
      "dn:: REM9c2l0ZSxEQz1leGFtcGxl\r\nobjectClass: domainDNS\r\nmaxPwdAge: -9\r\n\r\n"
      "dn: CN=Group,DC=site,DC=example\r\nobjectClass: group\r\nsAMAccountName: g\r\n\r\n"
      "dn: CN=PC,DC=site,DC=example\r\nobjectClass: user\r\nobjectClass: computer\r\n"
      "sAMAccountName: PC$\r\n\r\n"
      "# search result\r\nsearch: 2\r\nresult: 0 Success\r\n\r\n"
      "dn: CN=Last,DC=site,DC=example\r\nuserAccountControl: 512\r\n"
      "objectCategory: CN=Person,CN=Schema,DC=site,DC=example\r\nsAMAccountName: last");
  EXPECT_EQ(status, platform::kOk) << error.text;
  EXPECT_THAT(snapshot.warnings, IsEmpty());
  EXPECT_EQ(snapshot.namingContext, "DC=site,DC=example");
  EXPECT_EQ(snapshot.maxPwdAge, -9);
  ASSERT_THAT(names(snapshot), ElementsAre("anna", "PC$", "last"));
  const DirectoryEntry& anna = snapshot.entries[0];
  EXPECT_EQ(anna.dn, "CN=Anna Berg,OU=Staff,DC=site,DC=example");
  EXPECT_EQ(anna.givenName, "\xC3\x84nni");
  EXPECT_EQ(anna.surname, "B\xC3\xB6ll");
  EXPECT_EQ(anna.mail, "anna@site.example");
  EXPECT_EQ(anna.accountControl, 0x80000200U);
  EXPECT_EQ(anna.pwdLastSet, 134000000000000000);
  EXPECT_TRUE(anna.isPerson);
  EXPECT_FALSE(snapshot.entries[1].isPerson);
  EXPECT_TRUE(snapshot.entries[2].isPerson);
}

TEST_F(LdifSourceTest, AFaultyRecordIsReportedAndItsNeighboursAreRead) {
  const std::string tooLong(platform::kMaxLineBytes + 1, 'x');
  struct Case {
    std::string record;
    const char* warning;
  };
  const std::string dn = "dn: CN=X,DC=site,DC=example\n";
  const Case cases[] = {
      {dn + "no colon here\n", "domain.ldif:10: a line without \":\""},
      {dn + "two words: x\n", "domain.ldif:10: not an attribute"},
      {dn + "sn:: abc\n", "domain.ldif:10: not base64"},
      {dn + "sn:: ab\xC3\xA4=\n", "domain.ldif:10: not base64"},
      {dn + "sn:< file:///x\n", "domain.ldif:10: values that are elsewhere are not read"},
      {dn + "changetype: modify\nreplace: sn\nsn: x\n-\n",
       "domain.ldif:10: a change of an entry, not an entry"},
      {"sn: x\n" + dn, "domain.ldif:9: a record that does not begin with \"dn:\""},
      {" x\n" + dn, "domain.ldif:9: a continuation of nothing"},
      {dn + "sn: " + tooLong + "\n", "domain.ldif:10: line too long"},
      {dn + tooLong + "\n", "domain.ldif:10: line too long"},
      {dn + "objectClass: user\n", "domain.ldif:9: a user without sAMAccountName"},
      {dn + "objectClass: user\nsAMAccountName:: YQpi\n",
       "domain.ldif:11: sAMAccountName holds a control character"},
      {dn + "objectClass: user\npwdLastSet: -1\n", "domain.ldif:11: pwdLastSet is not a time"},
      {dn + "userAccountControl: 4294967296\n",
       "domain.ldif:10: userAccountControl is not a number of 32 bits"},
  };
  for (const Case& c : cases) {
    // After the head's four lines and the four of the user before.
    const DirectorySnapshot snapshot =
        load(kHead + user("before") + c.record + "\n" + user("after"));
    EXPECT_THAT(snapshot.warnings.front(), c.warning);
    EXPECT_THAT(names(snapshot), ElementsAre("before", "after")) << c.warning;
  }
}

TEST_F(LdifSourceTest, TwoRecordsWithoutALineBetweenThemAreBothRead) {
  std::string first = user("first");
  first.pop_back();
  const DirectorySnapshot snapshot = load(kHead + first + user("second"));
  EXPECT_THAT(names(snapshot), ElementsAre("first", "second"));
  EXPECT_THAT(snapshot.warnings, ElementsAre("domain.ldif:8: no empty line before this record"));
}

TEST_F(LdifSourceTest, AValueThatNobodyWantsMayHaveAnyLength) {
  // Longer than what is read at once, and with the wanted line after it still found in its place.
  const std::string photo = "photo: " + std::string(3 * platform::kMaxLineBytes, 'x') + "\r\n";
  const DirectorySnapshot snapshot =
      load(kHead + user("a", photo + "pwdLastSet: 77\n") + user("b"));
  ASSERT_THAT(names(snapshot), ElementsAre("a", "b"));
  EXPECT_THAT(snapshot.warnings, IsEmpty());
  ASSERT_EQ(LdifSource(kFile).expirePassword(snapshot.entries[0], error), platform::kNetSuccess);
  EXPECT_TRUE(fileText().find("x\r\npwdLastSet:  0\n\ndn: CN=b") != std::string::npos);
}

TEST_F(LdifSourceTest, FaultsAreCountedPastAThousand) {
  std::string text = kHead;
  for (int i = 0; i < 1002; ++i) text += "x\n\n";
  const DirectorySnapshot snapshot = load(text + user("after"));
  ASSERT_EQ(snapshot.warnings.size(), 1001U);
  EXPECT_EQ(snapshot.warnings.back(), "domain.ldif: 2 further faults");
  EXPECT_THAT(names(snapshot), ElementsAre("after"));
}

TEST_F(LdifSourceTest, WithoutADomainHeadTheUsersTellTheDomain) {
  EXPECT_EQ(load(user("a")).namingContext, "DC=site,DC=example");
}

TEST_F(LdifSourceTest, FailsAsAWholeWithOneLine) {
  DirectorySnapshot snapshot;
  EXPECT_TRUE(platform::failed(LdifSource("missing.ldif").load(snapshot, error)));
  EXPECT_EQ(error.text, "missing.ldif: No such file or directory");
  std::filesystem::create_directory("folder");
  EXPECT_TRUE(platform::failed(LdifSource("folder").load(snapshot, error)));
  EXPECT_THAT(error.text, testing::StartsWith("folder: "));
  load(
      std::string("\xFF\xFE"
                  "d\0n\0",
                  6));
  EXPECT_EQ(error.text, "domain.ldif:1: UTF-16; LDIF is ASCII or UTF-8");
  EXPECT_THAT(load("\n\nMZ\x90").warnings, IsEmpty());
  EXPECT_EQ(error.text, "domain.ldif: no domain in it; domain.ldif:3: a line without \":\"");
  EXPECT_TRUE(platform::failed(status));
}

TEST_F(LdifSourceTest, ExpiryOverwritesTheAttributeAndNothingElse) {
  struct Case {
    const char* before;
    const char* after;
  };
  const Case cases[] = {
      {"pwdLastSet: 134000000000000000\n", "pwdLastSet: 0\n################\n"},
      {"pwdlastset: 134000000000000000\r\n", "pwdLastSet: 0\r\n###############\r\n"},
      {"pwdLastSet:: MTM0MDAwMDAwMDAwMDAwMDAw\n", "pwdLastSet: 0\n#######################\n"},
      {"pwdLastSet: 1340000\n 00\n", "pwdLastSet: 0\n#########\n"},
      {"pwdLastSet: 123\n", "pwdLastSet: 0\n#\n"},
      {"pwdLastSet: 123\r\n", "pwdLastSet:   0\r\n"},
      {"pwdLastSet: 12\n", "pwdLastSet:  0\n"},
      {"pwdLastSet: 1\n", "pwdLastSet: 0\n"},
      {"pwdLastSet:1\n", "pwdLastSet:0\n"},
      {"pwdLastSet:0\n", "pwdLastSet:0\n"},
  };
  for (const Case& c : cases) {
    for (const char* mark : {"", "\xEF\xBB\xBF"}) {
      // The last one of the file, too, has no line end after it.
      const std::string start = mark + kHead + user("a") + "dn: CN=b\\,\n  c,DC=x\n" +
                                "sAMAccountName: b\nuserAccountControl: 512\n";
      const std::string rest = "mail: b@site.example\n\n" + user("c");
      const DirectorySnapshot snapshot = load(start + c.before + rest);
      ASSERT_EQ(snapshot.entries.size(), 3U) << c.before;
      EXPECT_EQ(LdifSource(kFile).expirePassword(snapshot.entries[1], error), platform::kNetSuccess)
          << c.before << error.text;
      EXPECT_EQ(fileText(), start + c.after + rest);
      // Once more changes nothing, and the file reads as it did but for the one value.
      EXPECT_EQ(LdifSource(kFile).expirePassword(snapshot.entries[1], error),
                platform::kNetSuccess);
      const DirectorySnapshot again = load(fileText());
      EXPECT_EQ(fileText(), start + c.after + rest);
      EXPECT_THAT(again.warnings, IsEmpty());
      EXPECT_EQ(again.entries[1].pwdLastSet, 0);
      EXPECT_EQ(again.entries[1].mail, "b@site.example");
    }
  }
}

TEST_F(LdifSourceTest, ExpiryAtTheVeryEndOfTheFile) {
  const DirectorySnapshot snapshot = load(
      "dn: CN=a,DC=x\nobjectClass: user\nsAMAccountName: a\n"
      "pwdLastSet: 134000000000000000");
  EXPECT_EQ(LdifSource(kFile).expirePassword(snapshot.entries[0], error), platform::kNetSuccess);
  EXPECT_THAT(fileText(), testing::EndsWith("\npwdLastSet: 0\n################"));
}

TEST_F(LdifSourceTest, ExpiryLeavesAFileThatChangedSinceAlone) {
  const std::string line = "pwdLastSet: 134000000000000000\n";
  const std::string before = kHead + user("a", line) + user("b", line);
  const DirectoryEntry entry = load(before).entries[1];
  const std::string others[] = {
      kHead + user("a", line) + user("x", line),  // another user at that place
      kHead + user("a", line) + user("b", "pwdLastSet: 134000000000000001\n"),
      kHead + user("a", line) + user("b", "pwdLastSet: 134000000000000000\n 1\n"),
      "#\n" + before,                        // moved
      before.substr(0, before.size() - 10),  // cut
      "",
  };
  for (const std::string& other : others) {
    ASSERT_TRUE(platform::writeWholeFile(kFile, other));
    EXPECT_EQ(LdifSource(kFile).expirePassword(entry, error), platform::kNetWriteFault) << other;
    EXPECT_EQ(error.text, "domain.ldif: changed since it was read; not touched");
    EXPECT_EQ(fileText(), other);
  }
  const DirectorySnapshot without = load(kHead + user("a"));
  EXPECT_EQ(LdifSource(kFile).expirePassword(without.entries[0], error), platform::kNetWriteFault);
}

}  // namespace
