#include "config/settings_loader.h"

#include <cstddef>

#include "base/ascii.h"
#include "config/editions.h"
#include "config/registry_readers.h"
#include "config/setting_loader.h"
#include "platform/registry/profile_file.h"

namespace config {
namespace {

using platform::Registry;

constexpr std::size_t kMachineTextCapacity = 100;
constexpr std::size_t kLicenceTextCapacity = 128;
constexpr std::size_t kIniTextCapacity = 100;
constexpr std::uint32_t kDictionarySkipPreset = 256;
constexpr std::uint32_t kSkipLengthPreset = 256;

void readMachineKind(Registry& registry, ProductSettings& pSettings) {
  pSettings.osType = machineKind(registry);
  const std::string testOS = readTextField(registry, kProductKey, "testOS", kMachineTextCapacity);
  for (const Edition& edition : editions()) {
    if (*edition.osType != '\0' && base::equalsNoCase(testOS, edition.osType)) {
      pSettings.testOS = pSettings.osType = edition.osType;
    }
  }
}

// The first edition for the kind of machine is the one in use; a licence for the next takes its
// place.
void chooseEdition(Registry& registry, LicenceCheck& licences, ProductSettings& pSettings) {
  if (pSettings.osType.empty()) return;
  for (const Edition& edition : editions()) {
    if (pSettings.osType != edition.osType) continue;
    const bool licensed = licences.check(registry, edition.key, edition.code, pSettings);
    if (edition.needsLicence && !licensed) continue;
    pSettings.keyPath = edition.key;
    pSettings.policyMax = edition.policyMax;
  }
}

void readSwitches(Registry& registry, const std::string& key, SettingLoaders loader,
                  ProductSettings& pSettings) {
  loadSettingGroup(registry, key, SettingGroup::EditionRoot, loader, pSettings);
  if (loader == kChosenKeySwitches) return;
  pSettings.noLogRejects = readNumberWithDefault(registry, key, "noLogRejects", 1) != 0;
}

void loadFromKey(Registry& registry, LicenceCheck& licences, const std::string& keyPath,
                 ProductSettings& pSettings) {
  for (const Edition& edition : editions()) {
    if (keyPath == edition.key && *edition.iniCode != '\0') pSettings.version = edition.iniCode;
  }
  licences.check(registry, keyPath, pSettings.version, pSettings);
  readSwitches(registry, keyPath, kChosenKeySwitches, pSettings);
}

std::string iniText(const char* key) {
  return platform::profileString(kIniFile, "registration", key, "", kIniTextCapacity);
}

bool iniFlag(const char* key, std::int32_t fallback = 0) {
  return platform::profileInt(kIniFile, "config", key, fallback) != 0;
}

void loadFromIni(ProductSettings& pSettings) {
  pSettings.regcode = iniText("regcode");
  pSettings.maintCode = iniText("maintCode");
  pSettings.version = iniText("version");
  pSettings.evaluation = platform::profileInt(kIniFile, "registration", "evaluation", 0) != 0;
  pSettings.netlogonDictionary = iniFlag("netlogonDictionary");
  pSettings.dictionarySkipLength =
      platform::profileInt(kIniFile, "config", "dictionarySkipLength", kDictionarySkipDefault);
  pSettings.bypassFilter = iniFlag("bypassFilter");
  // Of this store "logRejects" lands in noLogRejects, in the place of what was read there, and
  // logRejects itself is left as it was.
  pSettings.noLogRejects = iniFlag("noLogRejects", 1);
  pSettings.noLogRejects = iniFlag("logRejects");
  pSettings.resetBypass = iniFlag("resetBypass");
  pSettings.debug = iniFlag("debug");
  pSettings.vendorDebug = iniFlag("vendorDebug");
  pSettings.noReportStatus = iniFlag("noreportStatus");  // spelled so in this store
  pSettings.reportStatistics = iniFlag("reportStatistics");
}

}  // namespace

bool RegcodeLicenceCheck::check(Registry& registry, const std::string& key,
                                const std::string& edition, ProductSettings& pSettings) {
  const std::string regcode = readTextField(registry, key, "regcode", kLicenceTextCapacity);
  if (regcode.empty()) return false;
  pSettings.regcode = regcode;
  pSettings.maintCode = readTextField(registry, key, "maintCode", kLicenceTextCapacity);
  pSettings.evaluation = readFlag(registry, key, "evaluation");
  pSettings.version = edition;
  return true;
}

int loadSettings(Registry& registry, LicenceCheck& licences, ProductSettings& pSettings) {
  pSettings = ProductSettings();
  pSettings.dictionarySkipLength = kDictionarySkipPreset;
  pSettings.reportStatistics = true;
  pSettings.skipLength = kSkipLengthPreset;
  readMachineKind(registry, pSettings);
  chooseEdition(registry, licences, pSettings);
  readSwitches(registry, pSettings.keyPath, kStandardSwitches, pSettings);
  return 1;
}

int loadLiveSettings(Registry& registry, LicenceCheck& licences, ProductSettings& pSettings) {
  constexpr std::uint32_t kLivePolicies = 1;
  ProductSettings fresh;
  fresh.dictionaryDebug = pSettings.dictionaryDebug;
  fresh.skipLength = pSettings.skipLength;
  fresh.logSkips = pSettings.logSkips;
  pSettings = fresh;
  if (licences.check(registry, kLiveProductKey, "NRV-LE", pSettings)) {
    pSettings.keyPath = kLiveProductKey;
    pSettings.policyMax = kLivePolicies;
  }
  readSwitches(registry, pSettings.keyPath, kLiveSwitches, pSettings);
  return 1;
}

int loadSettingsFrom(PolicyStore store, Registry& registry, LicenceCheck& licences,
                     const std::string& keyPath, ProductSettings& pSettings) {
  if (store == PolicyStore::IniFile) {
    loadFromIni(pSettings);
  } else {
    loadFromKey(registry, licences, keyPath, pSettings);
  }
  return 1;
}

}  // namespace config
