#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "platform/system/files.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace platform {
namespace {

using test_support::readBytes;

namespace fs = std::filesystem;

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
  EXPECT_EQ(readBytes("LOGFILES/Debug.log"), "12");

  fs::create_directory("Lists");
  fs::rename("logfiles/debug.log", "Lists/Users.TXT");
  EXPECT_EQ(readBytes("lists\\users.txt"), "12");  // found in the case it has
  EXPECT_TRUE(appendToFile("lists\\USERS.txt", "3"));
  EXPECT_TRUE(appendToFile("lists\\More.txt", "4"));
  EXPECT_EQ(readBytes("Lists/Users.TXT"), "123");
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
  EXPECT_EQ(readBytes("real.reg"), "new");
  EXPECT_EQ(fs::status("real.reg").permissions(), fs::perms(0600));
}

}  // namespace
}  // namespace platform
