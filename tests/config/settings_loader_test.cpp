// The product settings: which edition a machine gets, which store says what, and the dump; the
// settings of the expiration service.
#include "config/settings_loader.h"

#include <regex>
#include <sstream>

#include "config/expiration_settings.h"
#include "config/settings_dump.h"
#include "tests/config/registry_fixture.h"
#include "tests/support/text_file.h"

namespace config {
namespace {

using namespace std::string_literals;

constexpr const char* kPolicies = "Software\\Policies\\Kadro\\";

class SettingsLoaderTest : public RegistryFixture {
 protected:
  // The values of several keys: each begins with "[KEY]", below HKEY_LOCAL_MACHINE.
  platform::Registry& registryOf(const std::string& body) {
    return registryWith("Software",
                        std::regex_replace(body, std::regex("\\["), "[HKEY_LOCAL_MACHINE\\"));
  }
  ProductSettings load(const std::string& body) {
    ProductSettings settings;
    EXPECT_EQ(loadSettings(registryOf(body), licences, settings), 1);
    return settings;
  }

  RegcodeLicenceCheck licences;
};

std::string machine(const std::string& productType, const std::string& testOS = "") {
  std::string text = "[System\\CurrentControlSet\\Control\\ProductOptions]\n\"productType\"=\"" +
                     productType + "\"\n";
  if (!testOS.empty()) text += "[Software\\Kadro\\PwsentryPro]\n\"testOS\"=\"" + testOS + "\"\n";
  return text;
}

std::string licence(const std::string& edition, const std::string& regcode = "R") {
  return "[Software\\Policies\\Kadro\\" + edition + "]\n\"regcode\"=\"" + regcode +
         "\"\n\"maintCode\"=\"M-" + edition + "\"\n\"evaluation\"=dword:00000002\n";
}

TEST_F(SettingsLoaderTest, ChoosesTheEditionByMachineAndLicence) {
  for (const auto& [site, expected] : test_support::readRows(TEST_DATA "edition_choices.txt")) {
    std::istringstream words(site);
    std::string productType, forced, edition;
    words >> productType >> forced;
    std::string values = machine(productType, forced == "-" ? "" : forced);
    while (words >> edition) values += licence(edition);
    const ProductSettings s = load(values);
    std::ostringstream chosen;
    chosen << s.osType << ' ' << s.keyPath.substr(std::string(kPolicies).size()) << ' ' << s.version
           << ' ' << s.maintCode << ' ' << s.evaluation << ' ' << s.policyMax << ' ' << s.testOS;
    EXPECT_EQ(chosen.str(), expected) << site;
    EXPECT_TRUE(s.keyPath.starts_with(kPolicies));
  }
  const ProductSettings unlicensed = load(machine("SERVERNT") + licence("PwsentryProMPEMS", ""));
  EXPECT_EQ(unlicensed.keyPath + unlicensed.version, kPolicies + "PwsentryProSPEMS"s);
  EXPECT_EQ(load(machine("other", "vax")).keyPath, "");
}

TEST_F(SettingsLoaderTest, ReadsTheSwitchesThatEachLoaderKnows) {
  const std::string values = test_support::readText(TEST_DATA "switches.txt");
  ProductSettings before;
  before.skipLength = 99;
  before.dictionaryDebug = before.callResetScript = true;

  ProductSettings s =
      load(machine("winnt") + "[Software\\Policies\\Kadro\\PwsentryProDE]\n" + values);
  EXPECT_TRUE(s.debug && s.logRejects && s.noReportStatus && s.logSkips);
  EXPECT_FALSE(s.noLogRejects || s.logResets || s.reportStatistics);  // a text is no flag
  EXPECT_EQ(s.dictionarySkipLength, 0U);                              // 0 counts as set
  EXPECT_EQ(s.skipLength, 20U);
  s = load(machine("winnt"));
  EXPECT_TRUE(s.noLogRejects && s.dictionarySkipLength == 127 && s.skipLength == 0);

  s = before;  // this edition knows neither "skipLength" nor "dictionaryDebug" nor "logSkips"
  loadLiveSettings(registryOf("[Software\\Policies\\NorvynSecurity\\NRVLive]\n" + values), licences,
                   s);
  EXPECT_TRUE(s.version == "NRV-LE" && s.policyMax == 1 && s.debug && s.dictionaryDebug);
  EXPECT_FALSE(s.noLogRejects || s.callResetScript || s.logSkips);
  EXPECT_EQ(s.skipLength, 99U);

  const std::string key = "Software\\Policies\\Kadro\\PwsentryProMPEMS";
  s = before;
  loadSettingsFrom(PolicyStore::Registry, registryOf("[" + key + "]\n" + values), licences, key, s);
  EXPECT_TRUE(s.version == "PW-MPE-MS" && s.noReportStatus && s.callResetScript);
  s = ProductSettings();  // another spelling is not that key
  loadSettingsFrom(PolicyStore::Registry, registryOf(machine("winnt")), licences,
                   "software\\Policies\\Kadro\\PwsentryProDE", s);
  EXPECT_TRUE(s.version.empty() && !s.noLogRejects);  // nor is there a default of 1
}

TEST_F(SettingsLoaderTest, ReadsTheIniFileWithItsOddities) {
  platform::writeWholeFile("pwsentrypro.ini",
                           "[registration]\nregcode=R\nversion=PW-SPE\n[config]\nlogRejects=1\n"
                           "noLogRejects=0\nnoreportStatus=1\n");
  ProductSettings s;
  loadSettingsFrom(PolicyStore::IniFile, registryOf(machine("winnt")), licences, "", s);
  EXPECT_EQ(s.regcode + s.version, "RPW-SPE");
  EXPECT_TRUE(s.noLogRejects && s.noReportStatus);  // "logRejects" lands in noLogRejects
  EXPECT_FALSE(s.logRejects);
  EXPECT_EQ(s.dictionarySkipLength, 127U);
}

TEST_F(SettingsLoaderTest, DumpsTheFieldsInTheirOrder) {
  ProductSettings s;
  s.regcode = "R";
  s.keyPath = "K";
  s.evaluation = s.logRejects = true;
  s.dictionarySkipLength = 0xFFFFFFFF;
  EXPECT_EQ(settingsDump(s), test_support::readText(TEST_DATA "settings_dump.txt"));
}

TEST_F(SettingsLoaderTest, ReadsTheExpirationSettings) {
  ExpirationSettings s = loadExpirationSettings(registryOf(""), kExpirationKeyMpe);
  EXPECT_EQ(s.warningThreshold, 14U);
  EXPECT_EQ(s.emailSubject, "YOUR WINDOWS PASSWORD WILL EXPIRE SOON");
  EXPECT_EQ(s.emailFromAddress, "password-expiration@localhost.localdomain");
  EXPECT_FALSE(s.hasCustomMessage() || s.emailAdminReports || s.reportOnly || s.htmllog);

  std::string error;
  const auto registry = platform::RegRegistry::load(TEST_DATA "expiration.reg", error);
  ASSERT_TRUE(registry) << error;
  s = loadExpirationSettings(*registry, kExpirationKeyMpems);
  EXPECT_EQ(s.smtpServer.size(), 127U);
  EXPECT_EQ(s.emailCustomMsg.size(), 2047U);
  EXPECT_EQ(s.emailSubject, "YOUR WINDOWS PASSWORD WILL EXPIRE SOON");
  EXPECT_TRUE(s.reportOnly && s.smtpStartTls);
  EXPECT_FALSE(s.htmllog);  // a text is no flag
  EXPECT_EQ(s.warningThreshold, 0xFFFFFFFF);
  EXPECT_EQ(s.warnings[2], -2);
  EXPECT_EQ(s.lengthPolicies[3].minLength, 12U);
  EXPECT_EQ(s.lengthPolicies[3].maxAge, 90U);
  EXPECT_EQ(s.expirationLastRunDay, 31U);  // of the product's key
  EXPECT_EQ(s.smtpPort, 587U);
}

}  // namespace
}  // namespace config
