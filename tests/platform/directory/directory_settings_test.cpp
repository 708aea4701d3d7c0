// Which directory the settings name, on a system that serves LDAP and on one that does not, and the
// line that refuses what cannot be used.
#include "platform/directory/directory_settings.h"

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "platform/registry/file/reg_registry.h"
#include "platform/system/files.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace {

using namespace platform;

constexpr auto kAll = ServedDirectories::LdapAndLdif;
constexpr auto kFiles = ServedDirectories::OnlyLdif;
const std::string kKey = "Software\\Kadro\\PwsentryPro\\Directory, value ";

class DirectorySettingsTest : public testing::Test {
 protected:
  // What the key with these lines comes to, or the refusal. Names of files without their folder.
  static std::string read(const std::string& lines, ServedDirectories served,
                          const std::string& uri = "") {
    EXPECT_TRUE(writeWholeFile("site.reg",
                               "REGEDIT4\n[HKEY_LOCAL_MACHINE\\Software\\Kadro\\PwsentryPro\\"
                               "Directory]\n" +
                                   lines + "\n"));
    std::string error;
    const auto registry = RegRegistry::load("site.reg", error);
    EXPECT_TRUE(registry) << error;
    DirectorySettings settings;
    if (!readDirectorySettings(*registry, uri, served, settings, error)) return error;
    const LdapSettings& ldap = settings.ldap;
    const auto plain = [](const std::string& file) {
      EXPECT_EQ(file, absolutePath(file));
      return std::filesystem::path(file).filename().string();
    };
    if (!settings.ldifFile.empty()) return "file " + plain(settings.ldifFile);
    if (ldap.bind == LdapSettings::Bind::Simple) {
      return "simple " + ldap.bindUser + " " + plain(ldap.bindPasswordFile) + " " +
             plain(ldap.caFile);
    }
    return ldap.uri + (ldap.base.empty() ? "" : " " + ldap.base);
  }

  test_support::TempDir folder;
};

TEST_F(DirectorySettingsTest, Addresses) {
  EXPECT_EQ(read("", kAll), "");
  for (const auto& [uri, result] : test_support::readRows(TEST_DATA "addresses.txt")) {
    const bool refused = result == "refused";
    const std::string refusal =
        uri + "\" is not ldap://HOST[:PORT][/DN], ldaps://..., ldapi://... or ldif:FILE";
    EXPECT_EQ(read("\"uri\"=\"" + uri + "\"", kAll),
              refused ? kKey + "\"uri\": \"" + refusal : result);
    EXPECT_EQ(read("\"uri\"=\"ldap://other\"", kAll, uri),
              refused ? "directory URI: \"" + refusal : result);
  }
  EXPECT_EQ(read("", kAll, "ldap://a\nb").find('\n'), std::string::npos);
}

TEST_F(DirectorySettingsTest, ASystemWithADomainOfItsOwnServesOnlyFiles) {
  const std::string bind = "\"bindMethod\"=\"junk\"\n";
  EXPECT_EQ(read(bind, kFiles), "");
  EXPECT_EQ(read(bind + "\"uri\"=\"Ldif:domain.ldif\"", kFiles), "file domain.ldif");
  EXPECT_EQ(read("\"uri\"=\"ldap://dc1\"", kFiles),
            kKey + "\"uri\": \"ldap://dc1\" is not ldif:FILE; without it this system reads the " +
                "machine's own domain");
}

TEST_F(DirectorySettingsTest, TypesAndBinds) {
  for (const auto& [lines, result] : test_support::readRows(TEST_DATA "binds.txt")) {
    EXPECT_EQ(read(test_support::unprintable(lines), kAll), result);
  }
  EXPECT_EQ(read("\"uri\"=\"ldif:" + std::string(4096, 'x') + "\"", kAll),
            kKey + "\"uri\": is not a text of less than 4096 bytes");
}

}  // namespace
