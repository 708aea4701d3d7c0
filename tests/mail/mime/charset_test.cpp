// The charset names that are written, and the ones that are understood.
#include "mail/mime/charset.h"

#include <map>
#include <string>
#include <vector>

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
  const std::map<std::uint32_t, std::vector<std::string_view>> rows = {
      {65001, {"UTF-8", "utf8"}}, {28591, {" iso_8859-1 ", "latin1"}},
      {28605, {"ISO8859-15"}},    {50220, {"iso-2022-jp"}},
      {51932, {"euc-jp"}},        {932, {"Shift_JIS"}},
      {1252, {"cp1252"}},         {1251, {"x-cp1251"}},
      {1250, {"windows-1250"}},   {949, {"ks_c_5601-1987"}},
      {936, {"cp-936"}},          {20127, {"ANSI_X3.4-1968"}},
      {437, {"ibm437"}},          {0, {"", "cp", "cp99999", "cp12x", "nonsense"}},
  };
  for (const auto& [codePage, names] : rows) {
    for (const auto name : names) EXPECT_EQ(CharsetNaming::getCodePage(name), codePage) << name;
  }
}

}  // namespace
}  // namespace kelvado
