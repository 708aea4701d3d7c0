// INI files on every system.
#include "platform/registry/profile_file.h"

#include <string>

#include <gtest/gtest.h>

#include "platform/system/files.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace platform {
namespace {

TEST(ProfileFile, FollowsTheRulesOfTheWindowsApi) {
  const test_support::TempDir directory;
  ASSERT_TRUE(writeWholeFile("site.ini", test_support::readBytes(TEST_DATA "site.ini")));
  for (const auto& [key, expected] : test_support::readRows(TEST_DATA "site_values.txt")) {
    const std::string text = profileString("site.ini", "config", key.c_str(), "default", 100);
    std::string read = '"' + text + '"';
    if (!text.empty()) {
      read += ' ' + std::to_string(profileInt("site.ini", "config", key.c_str(), 127));
    }
    EXPECT_EQ(read, expected) << key;
  }
  EXPECT_EQ(profileString("site.ini", "config", "blanks", "", 4), "two");
  EXPECT_EQ(profileString("missing.ini", "config", "first", "none", 100), "none");
}

}  // namespace
}  // namespace platform
