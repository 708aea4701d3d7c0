// The charset names that are written, and the ones that are understood.
#include "mail/mime/charset.h"

#include <string>

#include <gtest/gtest.h>

namespace kelvado {
namespace {

TEST(CharsetNaming, NamesCodePages) {
  const std::pair<std::uint32_t, std::string_view> rows[] = {
      {1201, "unicodefffe"},   {1200, "unicode"},      {65001, "utf-8"},    {50220, "iso-2022-jp"},
      {50222, "iso-2022-jp"},  {50221, "csiso2022jp"}, {51932, "euc-jp"},   {20932, "euc-jp"},
      {949, "ks_c_5601-1987"}, {37, "ibm037"},         {65006, "utf-32be"},
  };
  for (const auto& [codePage, name] : rows) {
    StringBuffer written;
    EXPECT_TRUE(CharsetNaming::getName(codePage, written)) << codePage;
    EXPECT_EQ(written.view(), name);
  }
  StringBuffer kept("kept");
  EXPECT_FALSE(CharsetNaming::getName(0, kept));
  EXPECT_FALSE(CharsetNaming::getName(65007, kept));
  EXPECT_EQ(kept.view(), "kept");
}

TEST(CharsetNaming, UnderstandsNamesAndAliases) {
  const std::pair<std::string_view, std::uint32_t> rows[] = {
      {"UTF-8", 65001},
      {"utf8", 65001},
      {" iso_8859-1 ", 28591},
      {"ISO8859-15", 28605},
      {"latin1", 28591},
      {"iso-2022-jp", 50220},
      {"euc-jp", 51932},
      {"Shift_JIS", 932},
      {"cp1252", 1252},
      {"x-cp1251", 1251},
      {"windows-1250", 1250},
      {"ks_c_5601-1987", 949},
      {"cp-936", 936},
      {"ANSI_X3.4-1968", 20127},
      {"ibm437", 437},
      {"", 0},
      {"cp", 0},
      {"cp99999", 0},
      {"cp12x", 0},
      {"nonsense", 0},
  };
  for (const auto& [name, codePage] : rows) {
    EXPECT_EQ(CharsetNaming::getCodePage(name), codePage) << name;
  }
}

TEST(EncodingConvert, TellsWhatWasLost) {
  struct Row {
    const char* charset;
    std::string_view utf8, bytes;
    bool lossy;
    bool mayBeMissing = false;  // not every system has it
  };
  const Row rows[] = {
      {"koi8-r", "\xD0\x9F", "\xF0", false},
      {"windows-1252", "\xE2\x82\xAC", "\x80", false},
      {"iso-8859-1", "\xE2\x82\xAC", "?", true},
      {"big5", "\xE6\xBC\xA2", "\xBA\x7E", false},
      {"gb18030", "\xE6\xBC\xA2", "\x9D\x68", false, true},
      {"iso-2022-jp", "\xE6\xBC\xA2", "\x1B$B4A\x1B(B", false, true},
  };
  for (const Row& row : rows) {
    std::string bytes, back;
    bool lossy = false;
    const bool converted = EncodingConvert::fromUtf8(Charset(row.charset), row.utf8, bytes, &lossy);
    if (row.mayBeMissing && !converted) continue;
    EXPECT_TRUE(converted);
    EXPECT_EQ(bytes, row.bytes) << row.charset;
    EXPECT_EQ(lossy, row.lossy) << row.charset;
    if (row.lossy) continue;
    EXPECT_TRUE(EncodingConvert::toUtf8(Charset(row.charset), bytes, back));
    EXPECT_EQ(back, row.utf8) << row.charset;
  }
  std::string out;
  EXPECT_FALSE(EncodingConvert::toUtf8(Charset("nonsense"), "x", out));
}

}  // namespace
}  // namespace kelvado
