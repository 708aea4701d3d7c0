#include <filesystem>
#include <iterator>
#include <string>

#include <windows.h>
#include <gtest/gtest.h>

#include "platform/files.h"
#include "tests/support/temp_dir.h"

namespace platform {
namespace {

std::string contents(const std::string& name) {
  std::string bytes;
  EXPECT_TRUE(readWholeFile(name, bytes)) << name;
  return bytes;
}

TEST(WindowsFiles, LinesOfTextEndAsTheSystemHasThem) {
  const test_support::TempDir directory;
  ASSERT_TRUE(createDirectory("LogFiles"));
  EXPECT_TRUE(writeTextFile("logfiles\\some.log", "head\n"));
  EXPECT_TRUE(appendToFile("logfiles//some.log", "one\ntwo\n"));
  EXPECT_EQ(contents("logfiles\\some.log"), "head\r\none\r\ntwo\r\n");
  EXPECT_TRUE(writeWholeFile("report.html", "one\n"));
  EXPECT_EQ(contents("report.html"), "one\n");
}

TEST(WindowsFiles, AFileInUseStaysWholeAndNothingIsLeftBesideIt) {
  const test_support::TempDir directory;
  ASSERT_TRUE(writeWholeFile("site.reg", "old"));
  const HANDLE reader = CreateFileA("site.reg", GENERIC_READ, FILE_SHARE_READ, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(reader, INVALID_HANDLE_VALUE);
  EXPECT_FALSE(replaceFileAtomically("site.reg", "new"));
  CloseHandle(reader);
  EXPECT_EQ(contents("site.reg"), "old");
  EXPECT_TRUE(replaceFileAtomically("site.reg", "new"));
  EXPECT_EQ(contents("site.reg"), "new");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator("."), {}), 1);
}

}  // namespace
}  // namespace platform
