// What files do on every system.
#include "platform/files.h"

#include <cerrno>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "platform/profile_file.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace platform {
namespace {

using test_support::readBytes;

using namespace std::string_literals;

class Files : public testing::Test {
 protected:
  test_support::TempDir directory_;
};

TEST_F(Files, ReadsLinesAsTheTextModeOfWindowsDoes) {
  const std::tuple<std::string, std::size_t, std::vector<std::string>> cases[] = {
      {"", 10, {}},
      {"a\nb", 10, {"a\n", "b"}},
      {"a\r\nb\r\n", 10, {"a\n", "b\n"}},
      {"a\rb\r\r\nc\r", 10, {"a\rb\r\n", "c\r"}},
      {"a\0b\n"s, 10, {"a\0b\n"s}},
      {"abcdef\n", 4, {"abc", "def", "\n"}},
      {"ab\r\ncd", 4, {"ab\n", "cd"}},        // CR LF takes one place
      {"abc\r\ncd", 4, {"abc", "\n", "cd"}},  // and is not torn
      {"\n\n", 2, {"\n", "\n"}},
  };
  for (const auto& [bytes, capacity, expected] : cases) {
    ASSERT_TRUE(writeWholeFile("list.txt", bytes));
    const File file = openFile("list.txt", "r");
    ASSERT_NE(file, nullptr);
    std::vector<std::string> lines;
    for (std::string line; readTextLine(file.get(), capacity, line);) lines.push_back(line);
    EXPECT_EQ(lines, expected) << bytes;
  }
}

TEST_F(Files, FailuresAreAnsweredNotSilent) {
  std::string bytes = "left over";
  EXPECT_FALSE(readWholeFile("missing", bytes));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(bytes, "");
  ASSERT_TRUE(writeWholeFile("file", "12345"));
  EXPECT_FALSE(readWholeFile("file", bytes, 4));
  EXPECT_EQ(errno, EFBIG);
  EXPECT_FALSE(createDirectory("file"));
  EXPECT_TRUE(createDirectory("folder"));
  EXPECT_EQ(openFile("folder", "r"), nullptr);
  EXPECT_TRUE(overwriteInFile("file", 2, "xy"));
  EXPECT_EQ(readBytes("file"), "12xy5");
}

TEST_F(Files, OfSettingsFollowTheRulesOfTheWindowsApi) {
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
