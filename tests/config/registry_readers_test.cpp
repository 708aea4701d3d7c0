#include "config/registry_readers.h"

#include <tuple>

#include "config/debug_log.h"
#include "config/pass_files.h"
#include "tests/config/registry_fixture.h"
#include "tests/support/text_file.h"

namespace config {
namespace {

constexpr const char* kKey = "Software\\Site";

class RegistryReaders : public RegistryFixture {};

TEST_F(RegistryReaders, EachHasItsOwnDefaultRule) {
  // What each reader makes of a value: plain, with the default 9, optional.
  const std::tuple<const char*, std::uint32_t, std::uint32_t, std::uint32_t> cases[] = {
      {"\"value\"=dword:80000001", 0x80000001, 0x80000001, 0x80000001},
      {"\"value\"=dword:00000000", 0, 0, 0},
      {"\"value\"=\"7\"", 0, 9, kNumberAbsent},
      {"\"other\"=dword:00000001", 0, 9, kNumberAbsent},
      {"\"value\"=hex(4):05", 5, 5, 5},
      // A number by its type, but one that cannot be read.
      {"\"value\"=hex(4):1,2,3,4,5", 0, 0, kNumberAbsent},
  };
  for (const auto& [line, number, withDefault, optional] : cases) {
    auto& registry = registryWith(kKey, line);
    EXPECT_EQ(readNumber(registry, kKey, "value"), number) << line;
    EXPECT_EQ(readNumberWithDefault(registry, kKey, "value", 9), withDefault) << line;
    EXPECT_EQ(readOptionalNumber(registry, kKey, "value"), optional) << line;
    EXPECT_EQ(readNumberWithDefault(registry, "Software\\Missing", "value", 9), 9U);
  }
}

TEST_F(RegistryReaders, TextsAreReadWholeAndFieldsCut) {
  const std::string most(kMaxTextValueBytes - 1, 'x');
  auto& registry = registryWith(kKey,
                                "\"text\"=\"abc\"\n"
                                "\"multi\"=hex(7):41,00,00,00,42,00,00,00,00,00\n"
                                "\"most\"=\"" +
                                    most + "\"\n\"over\"=\"x" + most + "\"\n");
  std::string text = "left over";
  EXPECT_FALSE(readText(registry, kKey, "missing", text));
  EXPECT_EQ(text, "");
  EXPECT_TRUE(readText(registry, kKey, "multi", text));
  EXPECT_EQ(text, "A");
  EXPECT_TRUE(readText(registry, kKey, "most", text));
  EXPECT_EQ(text, most);
  EXPECT_FALSE(readText(registry, kKey, "over", text));
  EXPECT_EQ(text, "");
  const char* fields[] = {"", "", "a", "ab", "abc", "abc"};
  for (std::size_t capacity = 0; capacity < std::size(fields); ++capacity) {
    EXPECT_EQ(readTextField(registry, kKey, "text", capacity), fields[capacity]) << capacity;
  }
}

TEST_F(RegistryReaders, WritersMakeTheKey) {
  auto& registry = registryWith(kKey, "");
  EXPECT_TRUE(writeNumber(registry, "Software\\New\\Key", "day", 0x80000005));
  EXPECT_EQ(readNumber(registry, "software\\new\\key", "DAY"), 0x80000005);
  const std::string longest(kMaxWrittenTextBytes, 'x');
  EXPECT_TRUE(writeText(registry, kKey, "text", longest));
  EXPECT_FALSE(writeText(registry, kKey, "text", longest + "x"));
}

TEST_F(RegistryReaders, DebugLinesOfAnyLengthFollowEachOtherUnlessSwitchedOff) {
  platform::createDirectory("logfiles");
  const std::string name(5000, 'n');
  DebugLog silent(false);
  silent.recreate();
  silent.print("%s\n", "not this");
  EXPECT_FALSE(platform::fileExists(config::kDebugLogFile));
  DebugLog log(true);
  log.print("user %s\n", name.c_str());
  log.print("%x\n", 0x80070005U);
  EXPECT_EQ(test_support::readText(config::kDebugLogFile), "user " + name + "\n80070005\n");
}

}  // namespace
}  // namespace config
