// What files do on every system.
#include "platform/system/files.h"

#include <cerrno>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace platform
