// LDIF as tools and people write it, its faults, and the forced expiry in the file.
#include "platform/directory/ldif/ldif_source.h"

#include <filesystem>
#include <optional>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/directory/entry_attributes.h"
#include "platform/system/files.h"
#include "platform/text/byte_lines.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace {

using namespace platform;
using testing::ElementsAre;

constexpr const char* kFile = "domain.ldif";
const std::string kHead =
    "dn: DC=site,DC=example\nobjectClass: domainDNS\nmaxPwdAge: -36288000000000\n\n";

std::string user(const std::string& name, const std::string& lines = "") {
  return "dn: CN=" + name + ",DC=site,DC=example\nobjectClass: user\nsAMAccountName: " + name +
         "\n" + lines + "\n";
}

class LdifSourceTest : public testing::Test {
 protected:
  // What a file of this text holds.
  DirectorySnapshot load(const std::string& text) {
    EXPECT_TRUE(writeWholeFile(kFile, text));
    DirectorySnapshot snapshot;
    status = LdifSource(kFile).load(snapshot, error);
    return snapshot;
  }
  static std::string names(const DirectorySnapshot& snapshot) {
    std::string result;
    for (const DirectoryEntry& entry : snapshot.entries) result += entry.logonName + " ";
    return result;
  }
  // "STATUS TEXT" of an expiry; "0 " for a success.
  static std::string expire(const DirectoryEntry& entry) {
    const AccountResult result = LdifSource(kFile).expirePassword(entry);
    return std::to_string(result.status) + " " + result.text;
  }
  static std::string fileText() { return test_support::readBytes(kFile); }

  test_support::TempDir directory;
  DirectoryError error;
  HResult status = kOk;
};

TEST_F(LdifSourceTest, ReadsEveryNotationOfARecord) {
  const DirectorySnapshot snapshot = load(test_support::readBytes(TEST_DATA "notations.ldif"));
  EXPECT_EQ(status, kOk) << error.text;
  EXPECT_THAT(snapshot.warnings, ElementsAre());
  EXPECT_EQ(snapshot.namingContext, "DC=site,DC=example");
  EXPECT_EQ(snapshot.maxPwdAge, -9);
  ASSERT_EQ(names(snapshot), "anna PC$ last ");
  const DirectoryEntry& anna = snapshot.entries[0];
  EXPECT_EQ(anna.dn, "CN=Anna Berg,OU=Staff,DC=site,DC=example");
  EXPECT_EQ(anna.givenName + " " + anna.surname, "\u00C4nni B\u00F6ll");
  EXPECT_EQ(anna.mail, "anna@site.example");
  EXPECT_EQ(anna.accountControl, 0x80000200U);
  EXPECT_EQ(anna.pwdLastSet, 134000000000000000);
  EXPECT_TRUE(anna.isPerson && !snapshot.entries[1].isPerson && snapshot.entries[2].isPerson);
}

TEST_F(LdifSourceTest, AFaultyRecordIsReportedAndItsNeighboursAreRead) {
  DirectorySnapshot snapshot = load(test_support::readBytes(TEST_DATA "faulty_records.ldif"));
  EXPECT_EQ(names(snapshot), "u1 u2 u3 u4 u5 u6 u7 u8 u9 u10 u11 u12 u13 near u14 u15 ");
  std::string warnings;
  for (const std::string& warning : snapshot.warnings) warnings += warning + "\n";
  EXPECT_EQ(warnings, test_support::readText(TEST_DATA "faulty_records_warnings.txt"));
  for (const char* attribute : {"sn: ", ""}) {
    const std::string tooLong = attribute + std::string(kMaxLineBytes + 1, 'x') + "\n";
    snapshot = load(kHead + "dn: CN=X\n" + tooLong + "\n" + user("after"));
    EXPECT_EQ(snapshot.warnings.front(), "domain.ldif:6: line too long");
    EXPECT_EQ(names(snapshot), "after ");
  }
  // Past a thousand they are only counted.
  std::string text = kHead;
  for (int i = 0; i < 1002; ++i) text += "x\n\n";
  snapshot = load(text + user("after"));
  EXPECT_EQ(snapshot.warnings.back(), "domain.ldif: 2 further faults");
  EXPECT_EQ(names(snapshot), "after ");
}

TEST_F(LdifSourceTest, TimesOfExpiryAreThoseOfTheDirectorysPolicies) {
  const std::string text = test_support::readBytes(TEST_DATA "fine_grained_policies.ldif");
  std::vector<std::pair<std::string, std::string>> found;
  ASSERT_TRUE(writeWholeFile(kFile, text));
  LdifSource source(kFile);
  DirectorySnapshot snapshot, unwanted = load(text);
  source.want({true, false});
  EXPECT_EQ(source.load(snapshot, error), kOk);
  for (const DirectoryEntry& entry : snapshot.entries) {
    const std::int64_t time = entry.passwordExpires;
    const std::string days = std::to_string((time - entry.pwdLastSet) / 864000000000);
    found.emplace_back(entry.logonName, time == 0               ? "not known"
                                        : time == kNoExpiryTime ? "never"
                                                                : days);
  }
  EXPECT_THAT(found, testing::ElementsAreArray(
                         test_support::readRows(TEST_DATA "fine_grained_policies.txt")));
  EXPECT_THAT(snapshot.warnings,
              ElementsAre("domain.ldif:117: msDS-UserPasswordExpiryTimeComputed is not a time",
                          "domain.ldif:289: password settings without a number as precedence and "
                          "maximum age: left out"));
  EXPECT_EQ(unwanted.entries[1].passwordExpires + static_cast<int>(unwanted.warnings.size()), 0);
}

TEST_F(LdifSourceTest, FailsAsAWholeWithOneLine) {
  DirectorySnapshot snapshot;
  EXPECT_TRUE(failed(LdifSource("missing.ldif").load(snapshot, error)));
  EXPECT_EQ(error.text, "missing.ldif: No such file or directory");
  std::filesystem::create_directory("folder");
  EXPECT_TRUE(failed(LdifSource("folder").load(snapshot, error)));
  load(std::string("\xFF\xFE d\0n\0", 6));
  EXPECT_EQ(error.text, "domain.ldif:1: UTF-16; LDIF is ASCII or UTF-8");
  load("\n\nMZ\x90");
  EXPECT_EQ(error.text, "domain.ldif: no domain in it; domain.ldif:3: a line without \":\"");
  EXPECT_TRUE(failed(status));
  EXPECT_EQ(load(user("a")).namingContext, "DC=site,DC=example");  // from its users
}

TEST_F(LdifSourceTest, ExpiryOverwritesTheAttributeAndNothingElse) {
  const std::string tail = "mail: b@site.example\n\n" + user("c");
  for (const auto& [oldLines, newLines] : test_support::readRows(TEST_DATA "expiries.txt")) {
    const std::string before = test_support::unprintable(oldLines);
    const std::string after = test_support::unprintable(newLines);
    for (const std::string rest : {tail.c_str(), ""}) {
      const std::string start = "\xEF\xBB\xBF" + kHead + "dn: CN=b\\,\n  c,DC=x\n" +
                                "sAMAccountName: b\nuserAccountControl: 512\n";
      const DirectorySnapshot snapshot = load(start + before + rest);
      // The second time changes nothing.
      EXPECT_EQ(expire(snapshot.entries[0]), "0 ") << before;
      EXPECT_EQ(expire(snapshot.entries[0]), "0 ") << before;
      EXPECT_EQ(fileText(), start + after + rest);
      const DirectorySnapshot again = load(fileText());
      EXPECT_EQ(names(again), names(snapshot));
      EXPECT_EQ(again.entries[0].pwdLastSet, 0);
      EXPECT_TRUE(again.warnings.empty());
    }
  }
  EXPECT_EQ(expire(load(user("a", "pwdLastSet: 1340000000000")).entries[0]), "0 ");
  EXPECT_EQ(fileText(), user("a", "pwdLastSet: 0\n###########"));
  // A value that nobody wants may be longer than what is read at once.
  const std::string photo = "photo: " + std::string(3 * kMaxLineBytes, 'x') + "\r\n";
  EXPECT_EQ(expire(load(kHead + user("a", photo + "pwdLastSet: 77\n") + user("b")).entries[0]),
            "0 ");
  EXPECT_TRUE(fileText().find("x\r\npwdLastSet:  0\n\ndn: CN=b") != std::string::npos);
}

TEST_F(LdifSourceTest, OnlyThePasswordThatWasReadIsExpired) {
  const std::string line = "pwdLastSet: 134000000000000000\n";
  const std::string start = kHead + user("a", line), before = start + user("b", line);
  const DirectoryEntry entry = load(before).entries[1];
  const std::string moved = "29 domain.ldif: changed since it was read";
  const struct {
    std::string file, refreshed, expired;  // "STATUS TIME" or "STATUS TEXT"
  } cases[] = {
      {start + user("b", "pwdLastSet: 134000000000000001\n"), "0 134000000000000001",
       "536870913 domain.ldif: the password of b was changed"},
      {start + user("b", "pwdLastSet: 0\n################\n"), "0 0", "0 "},
      {start + user("x", line), moved, moved + "; not touched"},  // another user in that place
      {start + user("b", "pwdLastSet: 134000000000000000\n 1\n"), moved, moved + "; not touched"},
      {start + user("b", "pwdLastSet: 13400000000000000x\n"), moved, moved + "; not touched"},
      {"#\n" + before, moved, moved + "; not touched"},
      {before.substr(0, before.size() - 10), moved, moved + "; not touched"},
      {"", moved, moved + "; not touched"},
  };
  for (const auto& each : cases) {
    ASSERT_TRUE(writeWholeFile(kFile, each.file));
    DirectoryEntry fresh = entry;
    const AccountResult read = LdifSource(kFile).refresh(fresh);
    const std::string text = read.ok() ? std::to_string(fresh.pwdLastSet) : read.text;
    EXPECT_EQ(std::to_string(read.status) + " " + text, each.refreshed);
    EXPECT_EQ(expire(entry), each.expired);
    EXPECT_EQ(fileText(), each.file);
  }
  DirectoryEntry never = load(user("a")).entries[0];
  EXPECT_EQ(expire(never), "29 domain.ldif: no pwdLastSet to set for a");
  EXPECT_TRUE(LdifSource(kFile).refresh(never).ok());
  removeFile(kFile);
  EXPECT_EQ(expire(entry), "29 domain.ldif: cannot be read: No such file or directory");
}

TEST(EntryAttributes, Times) {
  for (const auto& [text, expected] : test_support::readRows(TEST_DATA "times.txt")) {
    const std::optional<std::int64_t> time = timeValue(text);
    EXPECT_EQ(time ? std::to_string(*time) : "none", expected) << text;
  }
}

}  // namespace
