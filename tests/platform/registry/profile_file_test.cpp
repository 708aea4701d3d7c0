// INI files on every system.
#include "platform/registry/profile_file.h"

#include <cstdint>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "platform/system/files.h"
#include "tests/support/temp_dir.h"

namespace platform {
namespace {

TEST(ProfileFile, FollowsTheRulesOfTheWindowsApi) {
  const test_support::TempDir directory;
  writeWholeFile("site.ini",
                 "stray=0\r\n; [config]\r\n [ CONFIG ] trailing\r\n;first=0\r\nno equals sign\r\n"
                 " Blanks \t= two words \t\r\nfirst=1\r\nFIRST=2\r\ndouble=\" kept \"\r\n"
                 "half=\"open\r\ncomment=7 ; days\r\nempty=\r\nnegative=-3\r\nplus='+5'\r\n"
                 "[other]\r\nthere=1\r\n[config]\r\nlater=1");
  const std::tuple<const char*, std::string, std::uint32_t> cases[] = {
      {"blanks", "two words", 0},     {"first", "1", 1},          {"double", " kept ", 0},
      {"half", "\"open", 0},          {"comment", "7 ; days", 7}, {"empty", "", 0},
      {"negative", "-3", 0xFFFFFFFD}, {"plus", "+5", 5},          {"stray", "default", 127},
      {"there", "default", 127},      {"later", "default", 127},  // in a second [config]
  };
  for (const auto& [key, text, number] : cases) {
    EXPECT_EQ(profileString("site.ini", "config", key, "default", 100), text) << key;
    if (text.empty()) continue;  // on the number of an empty value systems do not agree
    EXPECT_EQ(profileInt("site.ini", "config", key, 127), number) << key;
  }
  EXPECT_EQ(profileString("site.ini", "config", "blanks", "", 4), "two");
  EXPECT_EQ(profileString("missing.ini", "config", "first", "none", 100), "none");
}

}  // namespace
}  // namespace platform
