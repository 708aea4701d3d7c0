#include "config/settings_loader.h"

#include <cstddef>

#include "base/ascii.h"
#include "config/expiration_settings.h"
#include "config/registry_readers.h"
#include "platform/registry/profile_file.h"

namespace config {
namespace {

using platform::Registry;

constexpr const char* kProductOptionsKey = "System\\CurrentControlSet\\Control\\ProductOptions";
constexpr const char* kKeySpe = "Software\\Policies\\Kadro\\PwsentryPro";
constexpr const char* kKeySpems = "Software\\Policies\\Kadro\\PwsentryProSPEMS";
constexpr const char* kKeyDe = "Software\\Policies\\Kadro\\PwsentryProDE";
constexpr const char* kKeyLive = "Software\\Policies\\NorvynSecurity\\NRVLive";

constexpr std::size_t kMachineTextCapacity = 100;
constexpr std::size_t kLicenceTextCapacity = 128;
constexpr std::size_t kIniTextCapacity = 100;
constexpr std::uint32_t kDictionarySkipPreset = 256;
constexpr std::uint32_t kDictionarySkipDefault = 127;
constexpr std::uint32_t kSkipLengthPreset = 256;

struct MachineKind {
  const char* productType;
  const char* osType;
};

constexpr MachineKind kMachineKinds[] = {{"winnt", "de"}, {"ServerNT", "ms"}, {"LanmanNT", "dc"}};

void readMachineKind(Registry& registry, ProductSettings& pSettings) {
  const std::string productType =
      readTextField(registry, kProductOptionsKey, "productType", kMachineTextCapacity);
  const std::string testOS = readTextField(registry, kProductKey, "testOS", kMachineTextCapacity);
  for (const MachineKind& kind : kMachineKinds) {
    if (base::equalsNoCase(productType, kind.productType)) pSettings.osType = kind.osType;
  }
  for (const MachineKind& kind : kMachineKinds) {
    if (base::equalsNoCase(testOS, kind.osType)) {
      pSettings.testOS = pSettings.osType = kind.osType;
    }
  }
}

// The editions of a kind of machine, in the order in which their licences are looked at: the first
// is the one in use, and a licence for the next takes its place.
struct Edition {
  const char* osType;
  const char* keyPath;
  std::uint32_t policyMax;
  const char* version;
  bool needsLicence;
};

constexpr Edition kEditions[] = {
    {"de", kKeyDe, 0, "NRV-DE", false},
    {"ms", kKeySpems, 0, "NRV-SPEMS", false},
    {"ms", kPolicyRootMpems, 2, "NRV-MPEMS", true},
    {"dc", kKeySpe, 0, "NRV-SPE", false},
    {"dc", kPolicyRootMpe, 5, "NRV-MPE", true},
};

void chooseEdition(Registry& registry, LicenceCheck& licences, ProductSettings& pSettings) {
  for (const Edition& edition : kEditions) {
    if (pSettings.osType != edition.osType) continue;
    const bool licensed = licences.check(registry, edition.keyPath, edition.version, pSettings);
    if (edition.needsLicence && !licensed) continue;
    pSettings.keyPath = edition.keyPath;
    pSettings.policyMax = edition.policyMax;
  }
}

// Which loaders read a switch.
enum Loaders : unsigned { kStandard = 1, kLive = 2, kChosenKey = 4, kAll = 7 };

struct Switch {
  const char* name;
  bool ProductSettings::*field;
  unsigned loaders = kStandard | kLive;
};

using S = ProductSettings;
constexpr Switch kSwitches[] = {
    {"netlogonDictionary", &S::netlogonDictionary, kAll},
    {"debug", &S::debug, kAll},
    {"vendorDebug", &S::vendorDebug, kAll},
    {"dictionaryDebug", &S::dictionaryDebug, kStandard},
    {"bypassFilter", &S::bypassFilter, kAll},
    {"noLogRejects", &S::noLogRejects, kChosenKey},  // here without a default of 1
    {"resetBypass", &S::resetBypass, kAll},
    {"logResets", &S::logResets},
    {"showFailedPasswords", &S::showFailedPasswords},
    {"callResetScript", &S::callResetScript},
    {"noReportStatus", &S::noReportStatus, kAll},
    {"reportStatistics", &S::reportStatistics, kAll},
    {"logSkips", &S::logSkips, kStandard},
};

void readSwitches(Registry& registry, const std::string& key, Loaders loader,
                  ProductSettings& pSettings) {
  for (const Switch& one : kSwitches) {
    if ((one.loaders & loader) != 0) pSettings.*one.field = readFlag(registry, key, one.name);
  }
  const std::uint32_t skip = readOptionalNumber(registry, key, "dictionarySkipLength");
  pSettings.dictionarySkipLength = skip != kNumberAbsent ? skip : kDictionarySkipDefault;
  if (loader == kChosenKey) return;
  pSettings.noLogRejects = readNumberWithDefault(registry, key, "noLogRejects", 1) != 0;
  pSettings.logRejects = readNumberWithDefault(registry, key, "logRejects", 0) != 0;
  if (loader == kStandard) pSettings.skipLength = readNumber(registry, key, "skipLength");
}

struct KeyVersion {
  const char* keyPath;
  const char* version;
};

constexpr KeyVersion kKeyVersions[] = {
    {kPolicyRootMpe, "PW-MPE"},      {kKeySpe, "PW-SPE"}, {kKeySpems, "PW-SPE-MS"},
    {kPolicyRootMpems, "PW-MPE-MS"}, {kKeyDe, "PW-DE"},
};

void loadFromKey(Registry& registry, LicenceCheck& licences, const std::string& keyPath,
                 ProductSettings& pSettings) {
  for (const KeyVersion& row : kKeyVersions) {
    if (keyPath == row.keyPath) pSettings.version = row.version;
  }
  licences.check(registry, keyPath, pSettings.version, pSettings);
  readSwitches(registry, keyPath, kChosenKey, pSettings);
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
  readSwitches(registry, pSettings.keyPath, kStandard, pSettings);
  return 1;
}

int loadLiveSettings(Registry& registry, LicenceCheck& licences, ProductSettings& pSettings) {
  constexpr std::uint32_t kLivePolicies = 1;
  ProductSettings fresh;
  fresh.dictionaryDebug = pSettings.dictionaryDebug;
  fresh.skipLength = pSettings.skipLength;
  fresh.logSkips = pSettings.logSkips;
  pSettings = fresh;
  if (licences.check(registry, kKeyLive, "NRV-LE", pSettings)) {
    pSettings.keyPath = kKeyLive;
    pSettings.policyMax = kLivePolicies;
  }
  readSwitches(registry, pSettings.keyPath, kLive, pSettings);
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
