// The parser and the edits of ".reg" files, without a file.
#include "platform/registry/file/reg_file.h"

#include <iomanip>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/text/code_page.h"
#include "platform/text/text_lines.h"
#include "tests/support/text_file.h"

namespace platform {
namespace {

using namespace std::string_literals;

constexpr std::string_view kVersion5 = "Windows Registry Editor Version 5.00\r\n\r\n";
constexpr std::string_view kKey = "[HKEY_LOCAL_MACHINE\\Software\\Site]\r\n";

std::string utf16(std::string_view utf8) {
  return "\xFF\xFE" + encodeText(utf8, true);
}

RegFile parsed(const std::string& bytes) {
  RegFile file;
  RegFileError error;
  EXPECT_TRUE(parseRegFile(bytes, file, error)) << error.line << ": " << error.what;
  return file;
}

RegistryValue valueOf(const RegFile& file, std::string_view name) {
  const RegFileValue* entry = file.findValue("SOFTWARE\\site", name);
  return entry == nullptr ? RegistryValue{RegistryType::None, "<missing>"} : entry->value;
}

// Each value of the key, as "NAME (TYPE) BYTES" with control characters as "<00>".
std::string printout(const RegFile& file) {
  std::ostringstream out;
  for (const auto& [folded, entry] : file.findKey("Software\\Site")->values) {
    out << entry.name << " (" << std::hex << static_cast<std::uint32_t>(entry.value.type) << ") |";
    for (const unsigned char c : entry.value.bytes) {
      if (c >= ' ' && c != 0xFF)
        out << c;
      else
        out << '<' << std::setw(2) << std::setfill('0') << static_cast<int>(c) << '>';
    }
    out << "|\n";
  }
  return out.str();
}

TEST(RegFile, ReadsEveryTypeInBothEncodings) {
  const std::string text = test_support::readBytes(TEST_DATA "values.reg");
  for (const std::string& bytes : {text, "\xEF\xBB\xBF" + text, utf16(text)}) {
    EXPECT_EQ(printout(parsed(bytes)), test_support::readBytes(TEST_DATA "values_read.txt"));
  }
}

TEST(RegFile, TextsOfVersion4AreAnsi) {
  const RegFile file =
      parsed("REGEDIT4\n" + std::string(kKey) + "\"old\"=\"M\xFCller\"\n\"hex\"=hex(2):4d,fc,00\n");
  EXPECT_EQ(valueOf(file, "old").bytes, "M\u00FCller\0"s);
  EXPECT_EQ(valueOf(file, "hex").bytes, "M\u00FC\0"s);
}

TEST(RegFile, AppliesLinesInOrder) {
  const RegFile file = parsed(test_support::readBytes(TEST_DATA "order.reg"));
  EXPECT_EQ(valueOf(file, "twice").bytes, "2\0"s);
  EXPECT_EQ(valueOf(file, "deleted").bytes, "<missing>");
  EXPECT_EQ(file.findKey("Software\\Gone"), nullptr);
  EXPECT_NE(file.findKey("Software"), nullptr);  // made by the keys below it
  EXPECT_NE(file.findValue("Software\\A]B\\[C]", "x"), nullptr);
}

TEST(RegFile, NamesTheLineThatIsWrong) {
  const std::string head = std::string(kVersion5) + std::string(kKey);  // three lines
  std::string deep;
  for (int i = 0; i < 100000; ++i) deep += "\\a";
  std::vector<std::pair<std::string, std::string>> cases = {
      {"", "1"},
      {"\xFE\xFF\0W"s, "1"},
      {std::string(kVersion5) + "\"a\"=\"1\"\n", "3"},
      {head + "[HKEY_LOCAL_MACHINE" + deep + "]\n", "4"},
  };
  for (const auto& [text, line] : test_support::readRows(TEST_DATA "wrong_lines.txt")) {
    cases.emplace_back(head + test_support::unprintable(text), line);
  }
  for (const auto& [bytes, line] : cases) {
    SCOPED_TRACE(bytes.substr(0, 200));
    RegFile file;
    RegFileError error;
    EXPECT_FALSE(parseRegFile(bytes, file, error));
    EXPECT_EQ(std::to_string(error.line), line) << error.what;
    EXPECT_EQ(error.what.find("secret"), std::string::npos);
  }
}

TEST(RegFile, EditsOnePlaceAndKeepsTheRest) {
  const std::string before = test_support::readBytes(TEST_DATA "edited.reg");
  const RegistryValue five{RegistryType::Dword, "\5\0\0\0"s};
  const struct {
    const char *path, *name;
    RegistryValue value;
    std::string oldPart, newPart;
  } cases[] = {
      {"software\\site", "DAY", five, "\"Day\"=dword:00000001", "\"Day\"=dword:00000005"},
      {"Software\\Site",
       "long",
       {RegistryType::String, "a\\\"\u20AC"s + '\0'},
       "\"long\"=hex:01,\\\r\n  02",
       "\"long\"=\"a\\\\\\\"\u20AC\""},
      {"Software\\Site", "new", five, "  02\r\n", "  02\r\n\"new\"=dword:00000005\r\n"},
      {"Software", "new", five, "\"x\"=\"y\"",
       "\"x\"=\"y\"\r\n\r\n[HKEY_LOCAL_MACHINE\\Software]\r\n\"new\"=dword:00000005\r\n"},
  };
  for (const auto& c : cases) {
    std::string expected = before;
    expected.replace(expected.find(c.oldPart), c.oldPart.size(), c.newPart);
    EXPECT_EQ(regFileWithValue(parsed(before), c.path, c.name, c.value), expected);
    EXPECT_EQ(regFileWithValue(parsed(utf16(before)), c.path, c.name, c.value), utf16(expected));
  }
  EXPECT_EQ(regFileWithKey(parsed("REGEDIT4\n"), "Software\\New"),
            "REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\Software\\New]\n");
}

}  // namespace
}  // namespace platform
