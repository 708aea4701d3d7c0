#include "platform/profile_file.h"

#include <string>

#include <gtest/gtest.h>

#include "platform/files.h"
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
  const struct {
    const char* key;
    const char* text;
    std::uint32_t number;
  } cases[] = {
      {"blanks", "two words", 0},     {"first", "1", 1},          {"double", " kept ", 0},
      {"half", "\"open", 0},          {"comment", "7 ; days", 7}, {"empty", "", 0},
      {"negative", "-3", 0xFFFFFFFD}, {"plus", "+5", 5},          {"stray", "default", 127},
      {"there", "default", 127},      {"later", "default", 127},  // in a second section of the same
                                                                  // name
  };
  for (const auto& c : cases) {
    EXPECT_EQ(profileString("site.ini", "config", c.key, "default", 100), c.text) << c.key;
    if (*c.text == '\0') continue;  // on the number of an empty value systems do not agree
    EXPECT_EQ(profileInt("site.ini", "config", c.key, 127), c.number) << c.key;
  }
  EXPECT_EQ(profileString("site.ini", "config", "blanks", "", 4), "two");
  EXPECT_EQ(profileString("missing.ini", "config", "first", "none", 100), "none");
}

}  // namespace
}  // namespace platform
