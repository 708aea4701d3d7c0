// Base64, quoted-printable, encoded words, uuencode and the names of charsets: bytes that other
// programs must read.
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "mail/mime/base64.h"
#include "mail/mime/charset.h"
#include "mail/mime/encoded_word.h"
#include "mail/mime/quoted_printable.h"
#include "mail/mime/uu.h"

namespace kelvado {
namespace {

std::string repeated(std::string_view text, int times) {
  std::string out;
  for (int i = 0; i < times; ++i) out.append(text);
  return out;
}

std::string quotedPrintable(std::string_view text, LineEnds lineEnds = LineEnds::AsLines) {
  std::string out;
  quotedPrintableAppend(text, lineEnds, out);
  return out;
}

TEST(Base64, EncodesInLinesAndDecodesWhatItCan) {
  const std::pair<std::size_t, std::string> encoded[] = {
      // zero bytes; the lines. A full line has one line end, not two.
      {0, "\r\n"},
      {1, "AA==\r\n"},
      {2, "AAA=\r\n"},
      {54, std::string(72, 'A') + "\r\n"},
      {57, std::string(76, 'A') + "\r\n"},
      {58, std::string(76, 'A') + "\r\nAA==\r\n"},
  };
  for (const auto& [bytes, lines] : encoded) {
    std::string out = "kept ";
    base64AppendLines(std::string(bytes, '\0'), kBodyLineLength, out);
    EXPECT_EQ(out, "kept " + lines) << bytes;
  }
  EXPECT_EQ(base64Encode("Man\xFB\xEF\xFF\xFE"), "TWFu++///g==");
  const std::tuple<std::string_view, std::string_view, bool> decoded[] = {
      {"TWFu", "Man", true},    {" TW\r\nE= \n", "Ma", true}, {"TQ==", "M", true},
      {"TWE", "Ma", false},     {"TW*Fu", "Man", false},      {"T", "", false},
      {"TQ==TWFu", "M", false}, {"====", "", false},          {"TWFu=", "Man", false},
  };
  for (const auto& [text, bytes, clean] : decoded) {
    std::string out;
    EXPECT_EQ(base64Decode(text, out), clean) << text;
    EXPECT_EQ(out, bytes) << text;
  }
}

TEST(QuotedPrintable, EncodesExactlyAndDecodesWhatOthersWrite) {
  const std::string full(75, 'a');
  const std::pair<std::string, std::string> rows[] = {
      {"", ""},
      {"a=b\xC3\xBC", "a=3Db=C3=BC"},
      {"12345678=2345678\x7Fxxxxxxx\x1Fxxxxxxx\xFFxxxxxxx.",
       "12345678=3D2345678=7Fxxxxxxx=1Fxxxxxxx=FFxxxxxxx."},
      {"tab\there", "tab\there"},
      {"a\nb\rc\r\nd", "a\r\nb\r\nc\r\nd"},
      // A blank at the end of a line or of the text would be lost.
      {"a \r\nb\t\n ", "a=20\r\nb=09\r\n=20"},
      {full, full},
      {full + "\r\nb", full + "\r\nb"},
      {full + "b", full + "=\r\nb"},
      {std::string(74, 'a') + "\xFF", std::string(74, 'a') + "=\r\n=FF"},
      {std::string(72, 'a') + "\xFF", std::string(72, 'a') + "=FF"},
      {std::string(74, 'a') + " \n", std::string(74, 'a') + "=\r\n=20\r\n"},
      {std::string("\0", 1), "=00"},
  };
  for (const auto& [text, encoded] : rows) EXPECT_EQ(quotedPrintable(text), encoded);
  EXPECT_EQ(quotedPrintable("a\nb\rc\r\n", LineEnds::Exact), "a=0Ab=0Dc\r\n");
  const std::pair<std::string_view, std::string_view> others[] = {
      {"a=\r\nb", "ab"},      {"a= \t\r\nb", "ab"}, {"a=\nb\n", "ab\n"}, {"a  \r\nb ", "a\r\nb"},
      {"=c3=bc", "\xC3\xBC"}, {"=XX=4", "=XX=4"},   {"a=", "a"},         {"=3D=", "="},
  };
  for (const auto& [text, decoded] : others) EXPECT_EQ(quotedPrintableDecode(text), decoded);
}

TEST(EncodedWord, EncodesExactly) {
  const std::tuple<std::string_view, std::string_view, std::string_view> rows[] = {
      {"plain (a@b), \"q\"", "utf-8", "plain (a@b), \"q\""},
      {"Gr\xC3\xBC\xC3\x9Fz, Welt_=?", "", "=?utf-8?Q?Gr=C3=BC=C3=9Fz=2C_Welt=5F=3D=3F?="},
      {"\xEF\xBB\xBF\xC3\xBC", "utf-8", "=?utf-8?Q?=C3=BC?="},  // the mark is dropped
      {"\xEF\xBB\xBF", "utf-8", ""},
      {"\xC3\xBC", "us-ascii", "\xC3\xBC"},
      {"=?utf-8?q?=C3=BC?= \xC3\xBC", "utf-8", "=?utf-8?q?=C3=BC?= \xC3\xBC"},  // taken as encoded
      {"\xC3\xBC", "iso-8859-1", "=?iso-8859-1?Q?=FC?="},
      {"\xC4\x9F", "iso-8859-9", "=?iso-8859-9?B?8A==?="},
      {"\xE6\xBC\xA2", "Shift_JIS", "=?shift_jis?B?ir8=?="},
      // What the charset can't carry goes out as UTF-8.
      {"\xE6\xBC\xA2", "iso-8859-1", "=?utf-8?Q?=E6=BC=A2?="},
      {"\xC3\xBC", "no-such-charset", "=?utf-8?Q?=C3=BC?="},
  };
  for (const auto& [text, charset, encoded] : rows) {
    EXPECT_EQ(encodeHeaderText(text, charset), encoded);
  }
  // Each word of a charset with shifts begins and ends in ASCII; not every system has such a one.
  const std::string kanji = encodeHeaderText("\xE6\xBC\xA2", "iso-2022-jp");
  EXPECT_TRUE(kanji == "=?iso-2022-jp?B?GyRCNEEbKEI=?=" || kanji == "=?utf-8?B?5ryi?=") << kanji;
  EXPECT_EQ(encodeBWords("\xC3\xBC", "utf-8"), "=?utf-8?B?w7w=?=");
  EXPECT_EQ(encodeBWords("=?x?b?w7w=?= \xC3\xBC", "utf-8"), "=?x?b?w7w=?= \xC3\xBC");
}

TEST(EncodedWord, FoldsBetweenCharacters) {
  const std::string kanji = repeated("\xE6\xBC\xA2", 8);
  const std::string word = "=?utf-8?B?" + repeated("5ryi", 8);
  // Column; the text in words of 72 characters, or fewer where the line is full.
  for (const auto& [column, lines] : std::initializer_list<std::pair<std::size_t, std::string>>{
           {0, word + repeated("5ryi", 7) + "?=\r\n =?utf-8?B?5ryi?="},
           {41, word.substr(0, 30) + "?=\r\n " + word + "5ryi5ryi5ryi?="},
           {60, "\r\n " + word + repeated("5ryi", 7) + "?=\r\n =?utf-8?B?5ryi?="}}) {
    EXPECT_EQ(encodeBWords(kanji + kanji, "utf-8", column), lines);
  }
}

TEST(EncodedWord, DecodesWhatOthersWrite) {
  const std::pair<std::string_view, std::string_view> rows[] = {
      {"a =?utf-8?Q?b_=3F?= c", "a b ? c"},
      {"=?utf-8?q?a?= \r\n =?UTF-8?b?Yg==?=", "ab"},  // the white space between words goes
      {"=?utf-8?Q?a?= - =?utf-8?Q?b?=", "a - b"},
      {"=?utf-8?Q?=C3?= =?utf-8?Q?=BC?=", "\xC3\xBC"},  // a character split between words
      {"=?iso-8859-1*de?Q?=FC?=", "\xC3\xBC"},
      {"=?windows-1251?B?z/Do4uXy?=", "\xD0\x9F\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82"},
      {"=?no-such?Q?a?=", "=?no-such?Q?a?="},
      {"=?utf-8?X?a?= =?utf-8?Q?b", "=?utf-8?X?a?= =?utf-8?Q?b"},
      {"=?=?=?utf-8?Q?=ZZ?=", "=?=?=ZZ"},
      {"=?", "=?"},
  };
  for (const auto& [value, decoded] : rows) EXPECT_EQ(decodeHeaderText(value), decoded) << value;
}

TEST(Uu, WritesAndReadsWhatOthersDo) {
  StringBuffer encoded;
  Uu("a b.bin\r\nx").encode(std::string(46, 'a'), encoded);  // one more than a line takes
  EXPECT_EQ(encoded.view(),
            "begin 666 a b.binx\r\nM" + repeated("86%A", 15) + "\r\n!80``\r\n`\r\nend\r\n");
  using namespace std::string_literals;
  const std::tuple<std::string_view, std::string, std::string_view> rows[] = {
      {"text\nbegin 0644 my cat.txt\n#0V%T\n \nend\n", "Cat", "my cat.txt"},
      {"begin 644 x\n#0V", "C`\0"s, "x"},            // cut off: zeros for what is missing
      {"begin 644 x\n_\n_0V%T\nend\n", "Cat", "x"},  // promises 63 bytes a line
  };
  for (const auto& [text, bytes, filename] : rows) {
    std::string decoded, name;
    EXPECT_TRUE(Uu::decode(text, decoded, &name));
    EXPECT_EQ(decoded, bytes);
    EXPECT_EQ(name, filename);
  }
  std::string none;
  EXPECT_FALSE(Uu::decode("begin nothing\nend\n", none));
}

TEST(CharsetNaming, NamesCodePagesAndUnderstandsAliases) {
  const std::pair<std::uint32_t, std::string_view> written[] = {
      {1201, "unicodefffe"},   {1200, "unicode"},      {65001, "utf-8"},    {50220, "iso-2022-jp"},
      {50222, "iso-2022-jp"},  {50221, "csiso2022jp"}, {51932, "euc-jp"},   {20932, "euc-jp"},
      {949, "ks_c_5601-1987"}, {37, "ibm037"},         {65006, "utf-32be"}, {0, "none"},
      {65007, "none"},         {28600, "none"},
  };
  for (const auto& [codePage, name] : written) {
    StringBuffer text("none");
    EXPECT_EQ(CharsetNaming::getName(codePage, text), name != "none") << codePage;
    EXPECT_EQ(text.view(), name);
  }
  const std::map<std::uint32_t, std::vector<std::string_view>> read = {
      {65001, {"UTF-8", "utf8"}}, {28591, {" iso_8859-1 ", "latin1"}},
      {28605, {"ISO8859-15"}},    {28600, {"iso-8859-10", "latin6"}},
      {28604, {"ISO_8859-14"}},   {28606, {"latin10"}},
      {51932, {"euc-jp"}},        {932, {"Shift_JIS"}},
      {1252, {"cp1252"}},         {1251, {"x-cp1251"}},
      {1250, {"windows-1250"}},   {949, {"ks_c_5601-1987", "euc-kr"}},
      {936, {"cp-936"}},          {20127, {"ANSI_X3.4-1968"}},
      {50220, {"iso-2022-jp"}},   {0, {"", "cp", "cp99999", "cp12x", "nonsense"}},
  };
  for (const auto& [codePage, names] : read) {
    for (const auto name : names) EXPECT_EQ(CharsetNaming::getCodePage(name), codePage) << name;
  }
}

}  // namespace
}  // namespace kelvado
