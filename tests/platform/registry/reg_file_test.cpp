// The parser and the edits of ".reg" files, without a file.
#include "platform/registry/file/reg_file.h"

#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>

#include "platform/text/code_page.h"
#include "platform/text/text_lines.h"

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

TEST(RegFile, ReadsEveryTypeInBothEncodings) {
  const std::tuple<std::string, std::string, RegistryType, std::string> cases[] = {
      {"text", "\"a \\\"b\\\" c:\\\\d ; e\" ; comment", RegistryType::String,
       "a \"b\" c:\\d ; e\0"s},
      {"umlaut", "\"M\u00FCller\"", RegistryType::String, "M\u00FCller\0"s},
      {"lines", "\"one\r\ntwo\"", RegistryType::String, "one\r\ntwo\0"s},
      {"number", "dword:0000000e", RegistryType::Dword, "\x0E\0\0\0"s},
      {"short", " dword:fF", RegistryType::Dword, "\xFF\0\0\0"s},
      {"binary", "hex:00,fF,\\\r\n  7,\\\r\n  10", RegistryType::Binary, "\0\xFF\x07\x10"s},
      {"none", "hex(0):", RegistryType::None, ""},
      {"expand", "hex(2):25,00,fc,00,00,00", RegistryType::ExpandString, "%\u00FC\0"s},
      {"open", "hex(1):41,00", RegistryType::String, "A"},
      {"multi", "hex(7):41,00,00,00,42,00,00,00,00,00", RegistryType::MultiString, "A\0B\0\0"s},
      {"quad", "hex(b):01,00,00,00,00,00,00,00", RegistryType::Qword, "\1\0\0\0\0\0\0\0"s},
      {"odd", "hex(ffff0012):01", static_cast<RegistryType>(0xFFFF0012), "\1"},
  };
  std::string text = std::string(kVersion5) + std::string(kKey) + "@=\"default\"\r\n";
  for (const auto& [name, data, type, value] : cases) text += '"' + name + "\"=" + data + "\r\n";
  for (const std::string& bytes : {text, "\xEF\xBB\xBF" + text, utf16(text)}) {
    const RegFile file = parsed(bytes);
    EXPECT_EQ(valueOf(file, "").bytes, "default\0"s);
    for (const auto& [name, data, type, value] : cases) {
      EXPECT_EQ(valueOf(file, name).type, type) << name;
      EXPECT_EQ(valueOf(file, name).bytes, value) << name;
    }
  }
}

TEST(RegFile, TextsOfVersion4AreAnsi) {
  const RegFile file =
      parsed("REGEDIT4\n" + std::string(kKey) + "\"old\"=\"M\xFCller\"\n\"hex\"=hex(2):4d,fc,00\n");
  EXPECT_EQ(valueOf(file, "old").bytes, "M\u00FCller\0"s);
  EXPECT_EQ(valueOf(file, "hex").bytes, "M\u00FC\0"s);
}

TEST(RegFile, AppliesLinesInOrder) {
  const RegFile file = parsed(std::string(kVersion5) +
                              "[HKEY_LOCAL_MACHINE\\Software\\Gone\\Below]\n\"a\"=\"1\"\n"
                              "[HKEY_LOCAL_MACHINE\\Software\\Site] ; [not this]\n"
                              "\"twice\"=\"1\"\n\"TWICE\"=\"2\"\n\"deleted\"=\"1\"\n\"deleted\"=-\n"
                              "[-HKEY_LOCAL_MACHINE\\SOFTWARE\\gone]\n\"ignored\"=\"1\"\n"
                              "[HKEY_CURRENT_USER\\Software\\Site]\n\"twice\"=\"3\"\n"
                              "[HKEY_LOCAL_MACHINE\\Software\\A]B\\[C]]\n\"x\"=\"1\"");
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
  const std::pair<std::string, std::size_t> cases[] = {
      {"", 1},
      {"\xFE\xFF\0W"s, 1},
      {std::string(kVersion5) + "\"a\"=\"1\"\n", 3},
      {head + "\n; comment\nsmtpServer=mail\n", 6},
      {head + "\"a\"=\"secret\\x\"\n", 4},
      {head + "\"a\"=\"secret\" x\n", 4},
      {head + "\"a\"=\"secret\n\"b\"=dword:1\n", 5},  // the quote before b closes it
      {head + "\"a\"=dword:123456789\n", 4},
      {head + "\"a\"=hex:01,\\\n  0x\n", 5},
      {head + "\"a\"=hex:01,\n", 4},
      {head + "\"a\"=hex:01,\\", 4},
      {head + "\"a\"=hex(:01\n", 4},
      {head + "[HKEY_LOCAL_MACHINE\\Software\n", 4},
      {head + "[HKEY_LOCAL_MACHINE\\\\Software]\n", 4},
      {head + "[HKLM_\\Software]\n", 4},
      {head + "[HKEY_CURRENT_USER\\Software]\nwrong\n", 5},
      {head + "[HKEY_LOCAL_MACHINE" + deep + "]\n", 4},
  };
  for (const auto& [bytes, line] : cases) {
    SCOPED_TRACE(bytes.substr(0, 200));
    RegFile file;
    RegFileError error;
    EXPECT_FALSE(parseRegFile(bytes, file, error));
    EXPECT_EQ(error.line, line) << error.what;
    EXPECT_EQ(error.what.find("secret"), std::string::npos);
  }
}

TEST(RegFile, EditsOnePlaceAndKeepsTheRest) {
  const std::string before = std::string(kVersion5) +
                             "; site of M\u00FCller\r\n"
                             "[HKEY_LOCAL_MACHINE\\Software\\Site]\r\n"
                             "  \"Day\"=dword:00000001 ; last day\r\n"
                             "\"long\"=hex:01,\\\r\n  02\r\n"
                             "\r\n"
                             "[HKEY_CURRENT_USER\\Software]\r\n"
                             "\"x\"=\"y\"";
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
