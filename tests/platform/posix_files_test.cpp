#include <cerrno>
#include <filesystem>
#include <iterator>
#include <string>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "platform/files.h"
#include "tests/support/temp_dir.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

std::string contents(const std::string& name) {
  std::string bytes;
  EXPECT_TRUE(readWholeFile(name, bytes)) << name;
  return bytes;
}

class PosixFiles : public testing::Test {
 protected:
  test_support::TempDir directory_;
};

TEST_F(PosixFiles, ARelativeNameIsOneFileInAnyLetterCase) {
  ASSERT_TRUE(createDirectory("LogFiles"));
  EXPECT_TRUE(createDirectory("logfiles\\"));  // exists already
  ASSERT_TRUE(appendToFile("LogFiles\\Debug.LOG", "1"));
  ASSERT_TRUE(appendToFile(".\\logfiles\\debug.log", "2"));
  EXPECT_TRUE(fs::exists("logfiles/debug.log"));  // made in lower case
  EXPECT_EQ(contents("LOGFILES/Debug.log"), "12");

  fs::create_directory("Lists");
  fs::rename("logfiles/debug.log", "Lists/Users.TXT");
  EXPECT_EQ(contents("lists\\users.txt"), "12");  // found in the case it has
  EXPECT_TRUE(appendToFile("lists\\USERS.txt", "3"));
  EXPECT_TRUE(appendToFile("lists\\More.txt", "4"));
  EXPECT_EQ(contents("Lists/Users.TXT"), "123");
  EXPECT_TRUE(fs::exists("Lists/more.txt"));
}

TEST_F(PosixFiles, NamesThatAPersonGaveStandAsTheyAre) {
  ASSERT_TRUE(writeWholeFile(directory_.path() + "/Site.REG", "mixed"));
  ASSERT_TRUE(writeWholeFile("other.reg", "lower"));
  EXPECT_EQ(absolutePath("Site.REG"), directory_.path() + "/Site.REG");
  EXPECT_EQ(absolutePath("Other.REG"), directory_.path() + "/other.reg");
  fs::create_directory("Work");
  fs::create_directory("work");
  ASSERT_TRUE(setWorkingDirectory("Work"));
  EXPECT_EQ(absolutePath("logfiles\\x"), directory_.path() + "/Work/logfiles/x");
}

TEST_F(PosixFiles, ReplacingKeepsLinksAndIsForTheOwnerOnly) {
  ASSERT_TRUE(writeWholeFile("real.reg", "old"));
  fs::create_symlink("real.reg", "link.reg");
  EXPECT_TRUE(replaceFileAtomically("link.reg", "new"));
  EXPECT_TRUE(fs::is_symlink("link.reg"));
  EXPECT_EQ(contents("real.reg"), "new");
  EXPECT_EQ(fs::status("real.reg").permissions(), fs::perms(0600));
}

TEST_F(PosixFiles, AFullDiskLeavesTheOldFileWholeAndNothingBesideIt) {
  ASSERT_TRUE(writeWholeFile("site.reg", "old"));
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  rlimit small = before;
  small.rlim_cur = 1000;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  const bool replaced = replaceFileAtomically("site.reg", std::string(2000, 'x'));
  const int reason = errno;
  const bool appended = appendToFile("some.log", std::string(2000, 'x'));
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_FALSE(replaced);
  EXPECT_EQ(reason, EFBIG);
  EXPECT_FALSE(appended);
  EXPECT_EQ(contents("site.reg"), "old");
  EXPECT_EQ(std::distance(fs::directory_iterator("."), {}), 2);
}

}  // namespace
}  // namespace platform
