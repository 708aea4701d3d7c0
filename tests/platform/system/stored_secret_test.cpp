// Secrets in files: what is read back, who may read the file, and in which words one is missed.
#include "platform/system/stored_secret.h"

#include <gtest/gtest.h>

#include "platform/system/files.h"
#include "platform/system/secret_protection.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace platform {
namespace {

TEST(StoredSecret, IsReadBackFromAFileThatOthersCannotRead) {
  const test_support::TempDir directory;
  std::string error;
  std::string secret;
  for (const std::string& stored : {std::string("first"), std::string("s3cret \xE4&x")}) {
    ASSERT_TRUE(storeSecret("secret", stored, "NRVPasswordExpiration", error)) << error;
    // Wine keeps no rights of an identity that it does not know.
    EXPECT_FALSE(fileIsShared("secret") && !protectsSecrets());
    ASSERT_TRUE(readStoredSecret("secret", secret, error)) << error;
    EXPECT_EQ(secret, stored);
    EXPECT_EQ(test_support::readBytes("secret").find(stored) == std::string::npos,
              protectsSecrets());
  }
}

TEST(StoredSecret, OneThatCannotBeUsedIsNamedInOneLine) {
  const test_support::TempDir directory;
  const std::string elsewhere = "its secret is protected, which only the Windows machine";
  const std::pair<const char*, std::string> cases[] = {
      {"", "its first line is empty"},
      {" \r\nsecond\n", "its first line is empty"},
      {"pwlapse-protected:0G", protectsSecrets() ? "its protected secret is not whole" : elsewhere},
      {"pwlapse-protected:00FF",
       protectsSecrets() ? "its protected secret is not of this machine: " : elsewhere},
  };
  for (const auto& [content, expected] : cases) {
    std::string secret;
    std::string error;
    ASSERT_TRUE(writeWholeFile("secret", content));
    EXPECT_FALSE(readStoredSecret("secret", secret, error));
    EXPECT_TRUE(error.starts_with(expected)) << error;
  }
}

}  // namespace
}  // namespace platform
