#include "platform/profile_file.h"

#include <string>

#include <gtest/gtest.h>

#include "platform/files.h"
#include "tests/support/temp_dir.h"

namespace platform {
namespace {

TEST(ProfileFile, FindsValuesByTheRulesOfTheWindowsApi) {
  const test_support::TempDir directory;
  writeWholeFile("site.ini",
                 "stray=0\r\n"
                 "; [config]\r\n"
                 " [ CONFIG ] trailing\r\n"
                 ";commented=1\r\n"
                 "no equals sign\r\n"
                 " Blanks \t= two words \t\r\n"
                 "first=1\r\n"
                 "FIRST=2\r\n"
                 "double=\" kept \"\r\n"
                 "single='it'\r\n"
                 "half=\"open\r\n"
                 "comment=value ; part of it\r\n"
                 "empty=\r\n"
                 "equals=a=b\r\n"
                 "[other]\r\n"
                 "there=1\r\n"
                 "[config]\r\n"
                 "later=1");
  const struct {
    const char* key;
    const char* expected;
  } cases[] = {
      {"blanks", "two words"}, {"first", "1"},
      {"double", " kept "},    {"single", "it"},
      {"half", "\"open"},      {"comment", "value ; part of it"},
      {"empty", ""},           {"equals", "a=b"},
      {"stray", "default"},    {"commented", "default"},
      {"there", "default"},    {"later", "default"},  // in a second section of the same name
  };
  for (const auto& c : cases) {
    EXPECT_EQ(profileString("site.ini", "config", c.key, "default", 100), c.expected) << c.key;
  }
  EXPECT_EQ(profileString("site.ini", "config", "blanks", "", 4), "two");
  EXPECT_EQ(profileString("missing.ini", "config", "first", "none", 100), "none");
}

TEST(ProfileFile, ReadsTheLeadingNumber) {
  const test_support::TempDir directory;
  writeWholeFile("site.ini",
                 "[config]\nplain=42\ntail=7 days\nnegative=-3\nplus=+5\nwords=many\nempty=\n");
  const struct {
    const char* key;
    std::uint32_t expected;
  } cases[] = {{"plain", 42}, {"tail", 7},  {"negative", 0xFFFFFFFD}, {"plus", 5},
               {"words", 0},  {"empty", 0}, {"missing", 127}};
  for (const auto& c : cases) {
    EXPECT_EQ(profileInt("site.ini", "config", c.key, 127), c.expected) << c.key;
  }
}

}  // namespace
}  // namespace platform
