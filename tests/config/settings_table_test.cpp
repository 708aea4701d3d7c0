// What goes by the table of settings: docs/settings.md, which lists its rows, and the search for
// values of a wrong type.
#include "config/settings_table.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include "config/settings_check.h"
#include "tests/config/registry_fixture.h"

namespace config {
namespace {

std::string typeText(const Setting& setting) {
  constexpr std::uint32_t kUsualBytes = 127;
  if (setting.type == SettingType::Flag) return "flag";
  if (setting.type == SettingType::Text) {
    if (setting.limit == kUsualBytes) return "text";
    return "text, at most " + std::to_string(setting.limit) + " bytes";
  }
  const std::string unit = *setting.unit == '\0' ? "" : std::string(", ") + setting.unit;
  return "number" + unit + (setting.limit == 0 ? "" : ", at most " + std::to_string(setting.limit));
}

std::string pageRow(const Setting& setting) {
  std::string row = "| `" + settingName(setting, 0) + "`";
  if (setting.count > 1) row += " .. `" + settingName(setting, setting.count - 1) + "`";
  row += " | " + typeText(setting) + " | ";
  if (setting.type != SettingType::Text) row += std::to_string(setting.number) + ' ';
  if (*setting.text != '\0') row += '`' + std::string(setting.text) + "` ";
  return row + "| " + setting.help + " |\n";
}

TEST(SettingsPage, ListsTheRowsOfTheTableAndNoOthers) {
  std::ifstream file(SETTINGS_PAGE, std::ios::binary);
  const std::string page((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  std::ptrdiff_t rows = 0;
  for (const SettingGroup group :
       {SettingGroup::Expiration, SettingGroup::Policy, SettingGroup::PolicyRules,
        SettingGroup::EditionRoot, SettingGroup::Product, SettingGroup::Directory}) {
    std::string table;
    for (const Setting& setting : settingsTable()) {
      if (setting.group == group) table += pageRow(setting);
    }
    rows += std::count(table.begin(), table.end(), '\n');
    EXPECT_NE(page.find("|\n" + table + "\n"), std::string::npos) << table;
  }
  std::ptrdiff_t onPage = 0;
  for (std::size_t at = 0; (at = page.find("\n| `", at)) != std::string::npos; ++at) ++onPage;
  EXPECT_EQ(onPage, rows);
}

class SettingsCheck : public RegistryFixture {};

TEST_F(SettingsCheck, NamesWhatIsOfAWrongTypeAndMattersToAPass) {
  const std::pair<std::string, std::string> cases[] = {
      {std::string(kExpirationKeyMpe) + "]\n\"reportOnly\"=\"1\"",
       "\"reportOnly\" of " + std::string(kExpirationKeyMpe) + ": not a number (REG_DWORD)"},
      {std::string(kExpirationKeyMpems) + "]\n\"maxAge4\"=hex(b):1e,00,00,00,00,00,00,00",
       "\"maxAge4\" of " + std::string(kExpirationKeyMpems) + ": not a number (REG_DWORD)"},
      {std::string(kExpirationKeyMpe) + "]\n\"smtpServer\"=dword:00000001",
       "\"smtpServer\" of " + std::string(kExpirationKeyMpe) + ": not a text (REG_SZ)"},
      {std::string(kProductKey) + "]\n\"expirationLastRunDay\"=\"5\"",
       "\"expirationLastRunDay\" of " + std::string(kProductKey) + ": not a number (REG_DWORD)"},
      {std::string(kPolicyRootMpems) + "]\n\"expirationServiceDebug\"=\"1\"",
       "\"expirationServiceDebug\" of " + std::string(kPolicyRootMpems) +
           ": not a number (REG_DWORD)"},
      {std::string(kPolicyRootMpe) + "\\Policy5]\n\"emailWarnings\"=\"1\"",
       "\"emailWarnings\" of " + std::string(kPolicyRootMpe) +
           "\\Policy5: not a number (REG_DWORD)"},
      // A rule of the filter, and texts of other types.
      {std::string(kPolicyRootMpe) + "\\Policy5]\n\"checkSpaces\"=\"1\"", ""},
      {std::string(kExpirationKeyMpe) + "]\n\"smtpServer\"=hex(2):61,00,00,00", ""},
  };
  for (const auto& [key, fault] : cases) {
    platform::Registry& registry = registryWith("Software", "[HKEY_LOCAL_MACHINE\\" + key + "\n");
    std::vector<std::string> faults;
    if (!fault.empty()) faults.push_back("registry value " + fault);
    EXPECT_EQ(findWrongTypes(registry), faults) << key;
  }
}

TEST_F(SettingsCheck, NotesNamesThatAreNotKnownAndWhatElseMayBeAMistake) {
  const std::string mpe = kPolicyRootMpe;
  const std::string notRead = " is not known, and not read";
  const std::pair<std::string, std::string> cases[] = {
      {mpe + "\\PWExpiration]\n\"reportOnyl\"=dword:00000001",
       "registry value \"reportOnyl\" of " + mpe + "\\PWExpiration" + notRead +
           ": \"reportOnly\" may be meant"},
      {mpe + "\\PWExpiration]\n\"WARNING3\"=dword:00000001\n@=\"\"", ""},
      {mpe + "\\PWExpiration]\n\"colour\"=\"red\"",
       "registry value \"colour\" of " + mpe + "\\PWExpiration" + notRead},
      {mpe + "\\Polcy1]\n\"colour\"=\"red\"",
       "registry key " + mpe + "\\Polcy1" + notRead + ": \"Policy1\" may be meant"},
      {mpe + "\\policy5]\n\"checkspaces\"=\"1\"",
       "registry value \"checkSpaces\" of " + mpe + "\\Policy5: not a number (REG_DWORD)"},
      {mpe + "\\Policy5]\n\"emailWarnings\"=dword:00000002",
       "registry value \"emailWarnings\" of " + mpe + "\\Policy5: 2 is more than 1"},
      {std::string(kPoliciesKey) + "\\PwsentryProMEP]",
       "registry key " + std::string(kPoliciesKey) + "\\PwsentryProMEP" + notRead +
           ": \"PwsentryProMPE\" may be meant"},
      // Others write there, too.
      {std::string(kPoliciesKey) + "\\Other]", ""},
      {std::string(kProductKey) + "]\n\"installed\"=dword:00000001", ""},
      {std::string(kDirectoryKey) + "]\n\"url\"=\"ldif:x\"",
       "registry value \"url\" of " + std::string(kDirectoryKey) + notRead +
           ": \"uri\" may be meant"},
  };
  for (const auto& [key, note] : cases) {
    platform::Registry& registry = registryWith("Software", "[HKEY_LOCAL_MACHINE\\" + key + "\n");
    const std::vector<std::string> notes = findSettingNotes(registry);
    EXPECT_EQ(notes, note.empty() ? std::vector<std::string>{} : std::vector{note}) << key;
  }
}

}  // namespace
}  // namespace config
