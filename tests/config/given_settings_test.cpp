// Settings of a command line, and the overlay that they are read through.
#include "config/given_settings.h"

#include "config/editions.h"
#include "config/registry_readers.h"
#include "tests/config/registry_fixture.h"
#include "tests/support/rows.h"

namespace config {
namespace {

class GivenSettingsTest : public RegistryFixture {};

TEST_F(GivenSettingsTest, AreReadInPlaceOfTheRegistrysOwn) {
  for (const auto& [text, place, name, expected] :
       test_support::rows<4>(TEST_DATA "given_settings.txt", "given")) {
    SCOPED_TRACE(text);
    std::vector<platform::GivenValue> values;
    std::string error;
    const bool read = readGivenSetting(text, values, error);
    EXPECT_EQ(read, place != "error");
    if (!read) {
      EXPECT_EQ(error, name);
      continue;
    }
    const std::string key =
        place.find('\\') == std::string::npos ? kPolicyRootMpe + ('\\' + place) : place;
    registryWith(key, "\"" + name + "\"=\"below\"\n\"other\"=\"kept\"\n");
    const std::string before = test_support::readBytes("site.reg");
    platform::OverlayRegistry registry(platform::RegRegistry::load("site.reg", error), values);
    std::string found;
    if (storedType(registry, key, name) == platform::RegistryType::Dword) {
      found = std::to_string(readNumber(registry, key, name));
    } else {
      readText(registry, key, name, found);
    }
    EXPECT_EQ(found, expected);
    EXPECT_TRUE(readText(registry, key, "other", found));
    EXPECT_EQ(registry.list(key).values.size(), 2U);
    // There is no such edition, and a value given for it must not make it the one in use.
    EXPECT_FALSE(storedType(registry, std::string(kPolicyRootMpems) + '\\' + place, name));
    EXPECT_TRUE(writeNumber(registry, key, name, 3));
    EXPECT_TRUE(writeNumber(registry, "Software\\New", "value", 4));
    EXPECT_EQ(readNumber(registry, key, name) + readNumber(registry, "Software\\New", "value"), 7U);
    EXPECT_EQ(test_support::readBytes("site.reg"), before);
  }
}

}  // namespace
}  // namespace config
