// What uses the table of settings: docs/settings.md, which lists its rows, and the search for
// mistakes of an administrator.
#include "config/settings_table.h"

#include <algorithm>

#include "config/settings_check.h"
#include "tests/config/registry_fixture.h"
#include "tests/support/text_file.h"

namespace config {
namespace {

std::string typeText(const Setting& setting) {
  constexpr std::uint32_t kUsualBytes = 127;
  if (setting.type == SettingType::Flag) return "flag";
  if (setting.type == SettingType::TimeOfDay) return "time, HH:MM";
  if (isText(setting.type)) {
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
  if (!isText(setting.type)) row += std::to_string(setting.number) + ' ';
  if (*setting.text != '\0') row += '`' + std::string(setting.text) + "` ";
  return row + "| " + setting.help + " |\n";
}

TEST(SettingsPage, ListsTheRowsOfTheTableAndNoOthers) {
  const std::string page = test_support::readText(SETTINGS_PAGE);
  std::ptrdiff_t rows = 0;
  for (const SettingGroup group :
       {SettingGroup::Expiration, SettingGroup::Policy, SettingGroup::PolicyRules,
        SettingGroup::EditionRoot, SettingGroup::Product, SettingGroup::Directory,
        SettingGroup::Service}) {
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
  for (const auto& [entry, expected] : test_support::readRows(TEST_DATA "setting_mistakes.txt")) {
    const std::size_t end = entry.find(']');
    platform::Registry& registry = registryWith(entry.substr(1, end - 1), entry.substr(end + 1));
    std::string found;
    for (const auto& wrong : findWrongTypes(registry)) found += "wrong type: " + wrong.text();
    for (const auto& bad : findUnusableValues(registry)) found += "not used: " + bad.text();
    for (const auto& note : findSettingNotes(registry)) found += "note: " + note.text();
    EXPECT_EQ(found.empty() ? "nothing" : found, expected) << entry;
  }
}

}  // namespace
}  // namespace config
