// What uses the table of settings: docs/settings.md, which lists its rows, and the search for
// mistakes of an administrator.
#include "config/settings_table.h"

#include <algorithm>
#include <tuple>

#include "config/settings_check.h"
#include "tests/config/registry_fixture.h"
#include "tests/support/text_file.h"

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
  const std::string page = test_support::readText(SETTINGS_PAGE);
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

TEST_F(SettingsCheck, SaysWhatIsNotAsTheTableHasIt) {
  const std::string mpe = kPolicyRootMpe;
  const std::string policy5 = mpe + "\\Policy5";
  const std::string noNumber = ": not a number (REG_DWORD)";
  const std::string notKnown = " is not known, and not read";
  const struct {
    std::string key, name, value;
    std::string wrongType, note;  // behind "registry value NAME of KEY"
  } cases[] = {
      {kExpirationKeyMpe, "reportOnly", "\"1\"", noNumber, ""},
      {kExpirationKeyMpems, "maxAge4", "hex(b):1e,00,00,00,00,00,00,00", noNumber, ""},
      {kExpirationKeyMpe, "smtpServer", "dword:00000001", ": not a text (REG_SZ)", ""},
      {kExpirationKeyMpe, "smtpServer", "hex(2):61,00,00,00", "", ""},
      {kProductKey, "expirationLastRunDay", "\"5\"", noNumber, ""},
      {kPolicyRootMpems, "expirationServiceDebug", "\"1\"", noNumber, ""},
      {policy5, "emailWarnings", "\"1\"", noNumber, ""},
      // What a pass does not go by.
      {policy5, "checkSpaces", "\"1\"", "", noNumber},
      {policy5, "emailWarnings", "dword:00000002", "", ": 2 is more than 1"},
      {kExpirationKeyMpe, "reportOnyl", "dword:00000001", "",
       notKnown + ": \"reportOnly\" may be meant"},
      {kExpirationKeyMpe, "WARNING3", "dword:00000001", "", ""},
      {kExpirationKeyMpe, "colour", "\"red\"", "", notKnown},
      {kDirectoryKey, "url", "\"ldif:x\"", "", notKnown + ": \"uri\" may be meant"},
      {kProductKey, "installed", "dword:00000001", "", ""},  // another program's
  };
  const auto lines = [](const std::string& what, const std::string& words) {
    return words.empty() ? std::vector<std::string>{} : std::vector{what + words};
  };
  for (const auto& c : cases) {
    platform::Registry& registry = registryWith(c.key, '"' + c.name + "\"=" + c.value + '\n');
    const std::string what = "registry value \"" + c.name + "\" of " + c.key;
    EXPECT_EQ(findWrongTypes(registry), lines(what, c.wrongType));
    EXPECT_EQ(findSettingNotes(registry), lines(what, c.note));
  }
  const std::tuple<std::string, const char*, const char*> keys[] = {
      {mpe, "Polcy1", ": \"Policy1\" may be meant"},
      {kPoliciesKey, "PwsentryProMEP", ": \"PwsentryProMPE\" may be meant"},
      {kPoliciesKey, "Other", nullptr},  // another program's
  };
  for (const auto& [parent, name, nearest] : keys) {
    const std::string key = parent + '\\' + name;
    EXPECT_EQ(findSettingNotes(registryWith(key, "")),
              lines("registry key " + key, nearest == nullptr ? "" : notKnown + nearest));
  }
}

}  // namespace
}  // namespace config
