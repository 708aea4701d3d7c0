#include "config/expiration_settings.h"

#include "tests/config/registry_fixture.h"

namespace config {
namespace {

class ExpirationSettingsTest : public RegistryFixture {};

TEST_F(ExpirationSettingsTest, AMissingKeyYieldsTheDefaults) {
  const auto settings = loadExpirationSettings(registryWith("Software", ""), kExpirationKeyMpe);
  EXPECT_EQ(settings.warningThreshold, 14U);
  EXPECT_EQ(settings.emailSubject, "YOUR WINDOWS PASSWORD WILL EXPIRE SOON");
  EXPECT_EQ(settings.emailFromAddress, "password-expiration@localhost.localdomain");
  EXPECT_FALSE(settings.hasCustomMessage());
  EXPECT_FALSE(settings.emailAdminReports || settings.reportOnly || settings.htmllog);
}

TEST_F(ExpirationSettingsTest, ReadsEachKindByItsRule) {
  const auto settings = loadExpirationSettings(
      registryWith(kExpirationKeyMpems,
                   "\"smtpServer\"=\"" + std::string(200, 's') +
                       "\"\n"
                       "\"emailCustomMsg\"=\"" +
                       std::string(3000, 'm') +
                       "\"\n"
                       "\"emailSubject\"=\"\"\n"
                       "\"reportOnly\"=dword:00000002\n\"htmllog\"=\"1\"\n"
                       "\"warningThreshold\"=dword:ffffffff\n\"warning3\"=dword:fffffffe\n"
                       "\"minLength4\"=dword:0000000c\n\"maxAge4\"=dword:0000005a\n"
                       "\"expirationLastRunDay\"=dword:00000005\n"
                       "\"smtpPort\"=dword:0000024b\n\"smtpStartTls\"=dword:00000001\n"
                       "[HKEY_LOCAL_MACHINE\\Software\\Kadro\\PwsentryPro]\n"
                       "\"expirationLastRunDay\"=dword:0000001f\n"),
      kExpirationKeyMpems);
  EXPECT_EQ(settings.smtpServer.size(), 127U);
  EXPECT_EQ(settings.emailCustomMsg.size(), 2047U);
  EXPECT_EQ(settings.emailSubject, "YOUR WINDOWS PASSWORD WILL EXPIRE SOON");
  EXPECT_TRUE(settings.reportOnly);
  EXPECT_FALSE(settings.htmllog);  // a text is no flag
  EXPECT_EQ(settings.warningThreshold, 0xFFFFFFFF);
  EXPECT_EQ(settings.warnings[2], -2);
  EXPECT_EQ(settings.lengthPolicies[3].minLength, 12U);
  EXPECT_EQ(settings.lengthPolicies[3].maxAge, 90U);
  EXPECT_EQ(settings.expirationLastRunDay, 31U);  // of the product's key
  EXPECT_EQ(settings.smtpPort, 587U);
  EXPECT_TRUE(settings.smtpStartTls);
}

}  // namespace
}  // namespace config
