// What files do on every system.
#include "platform/system/files.h"

#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace platform {
namespace {

using test_support::readBytes;

class Files : public testing::Test {
 protected:
  test_support::TempDir directory_;
};

TEST_F(Files, ReadsLinesAsTheTextModeOfWindowsDoes) {
  for (const auto& [file, expected] : test_support::readRows(TEST_DATA "text_lines.txt")) {
    const std::size_t blank = file.find(' ');
    ASSERT_TRUE(writeWholeFile("list.txt", test_support::unprintable(file.substr(blank + 1))));
    const File opened = openFile("list.txt", "r");
    ASSERT_NE(opened, nullptr);
    std::string lines;
    for (std::string line; readTextLine(opened.get(), std::stoul(file), line);) lines += line + '|';
    EXPECT_EQ(lines, test_support::unprintable(expected)) << file;
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
