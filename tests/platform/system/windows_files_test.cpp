#include <filesystem>
#include <iterator>
#include <string>

#include <windows.h>
#include <gtest/gtest.h>

#include "platform/system/files.h"
#include "platform/system/windows/access_list.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace platform {
namespace {

using test_support::readBytes;

TEST(WindowsFiles, AFileInUseStaysWholeAndNothingIsLeftBesideIt) {
  const test_support::TempDir directory;
  ASSERT_TRUE(writeWholeFile("site.reg", "old"));
  const HANDLE reader = CreateFileA("site.reg", GENERIC_READ, FILE_SHARE_READ, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(reader, INVALID_HANDLE_VALUE);
  EXPECT_FALSE(replaceFileAtomically("site.reg", "new"));
  CloseHandle(reader);
  EXPECT_EQ(readBytes("site.reg"), "old");
  EXPECT_TRUE(replaceFileAtomically("site.reg", "new"));
  EXPECT_EQ(readBytes("site.reg"), "new");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator("."), {}), 1);
}

// The identity that Windows itself has for a service of that name.
TEST(WindowsAccess, TheIdentityOfAServiceIsThatOfWindows) {
  EXPECT_EQ(serviceSid("TrustedInstaller"),
            L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464");
}

}  // namespace
}  // namespace platform
