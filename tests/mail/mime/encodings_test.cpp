// Base64, quoted-printable, encoded words, uuencode and the names of charsets: bytes that other
// programs must read.
#include <string>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>

#include "mail/mime/base64.h"
#include "mail/mime/charset.h"
#include "mail/mime/encoded_word.h"
#include "mail/mime/quoted_printable.h"
#include "mail/mime/uu.h"
#include "tests/support/rows.h"

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
  const auto decoded = test_support::rows<3>(ROWS "/encodings.txt", "base64");
  for (const auto& [text, bytes, clean] : decoded) {
    std::string out;
    EXPECT_EQ(base64Decode(text, out), clean == "true") << text;
    EXPECT_EQ(out, bytes) << text;
  }
}

TEST(QuotedPrintable, EncodesExactlyAndDecodesWhatOthersWrite) {
  const std::string full(75, 'a');
  const auto rows = test_support::rows<2>(ROWS "/encodings.txt", "quoted-printable");
  for (const auto& [text, encoded] : rows) EXPECT_EQ(quotedPrintable(text), encoded);
  EXPECT_EQ(quotedPrintable("a\nb\rc\r\n", LineEnds::Exact), "a=0Ab=0Dc\r\n");
  const auto others = test_support::rows<2>(ROWS "/encodings.txt", "quoted-printable of others");
  for (const auto& [text, decoded] : others) EXPECT_EQ(quotedPrintableDecode(text), decoded);
}

TEST(EncodedWord, EncodesExactly) {
  const auto rows = test_support::rows<3>(ROWS "/encodings.txt", "encoded words");
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
  const auto rows = test_support::rows<2>(ROWS "/encodings.txt", "encoded words of others");
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
  const std::string file = ROWS "/encodings.txt";
  for (const auto& [codePage, name] : test_support::rows<2>(file, "charset names written")) {
    StringBuffer text("none");
    EXPECT_EQ(CharsetNaming::getName(std::stoi(codePage), text), name != "none") << codePage;
    EXPECT_EQ(text.view(), name);
  }
  for (const auto& [codePage, name] : test_support::rows<2>(file, "charset names read")) {
    EXPECT_EQ(std::to_string(CharsetNaming::getCodePage(name)), codePage) << name;
  }
}

}  // namespace
}  // namespace kelvado
