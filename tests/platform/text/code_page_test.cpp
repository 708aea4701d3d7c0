#include "platform/text/code_page.h"

#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "base/unicode.h"
#include "tests/support/text_file.h"

namespace platform {
namespace {

std::string bytes(std::initializer_list<int> values) {
  std::string text;
  for (const int value : values) text += static_cast<char>(value);
  return text;
}

TEST(Unicode, MalformedUtf8GivesOneReplacementForEachIllFormedPart) {
  for (const auto& [bytes, expected] : test_support::readRows(TEST_DATA "utf8.txt")) {
    const std::string utf8 = test_support::unprintable(bytes);
    const std::string taken = test_support::unprintable(expected);
    EXPECT_EQ(base::utf16ToUtf8(base::utf8ToUtf16(utf8)), taken) << bytes;
    EXPECT_EQ(base::isValidUtf8(utf8), utf8 == taken) << bytes;
  }
  EXPECT_EQ(base::utf8ToUtf16("\xF0\x9F\x94\x91 \xC3\xBC"), u"\U0001F511 \u00FC");
  const char16_t lone[] = {u'a', 0xD83D, u'b', 0xDD11};
  EXPECT_EQ(base::utf16ToUtf8(std::u16string_view(lone, 4)), "a\uFFFDb\uFFFD");
}

TEST(Ansi, TextThatIsNotUtf8IsWindows1252) {
  EXPECT_EQ(ansiToUtf16("M\xFCller \x80"), u"M\u00FCller \u20AC");
  EXPECT_NE(ansiToUtf16("\x81"), ansiToUtf16("\x8D"));  // bytes it leaves undefined stay apart
}

TEST(Ansi, AStartSplitsNoCharacter) {
  const std::string text = "b\u00FC\u20AC";
  const char* starts[] = {
      "", "b", "b", "b\u00FC", "b\u00FC", "b\u00FC", "b\u00FC\u20AC", "b\u00FC\u20AC"};
  for (std::size_t limit = 0; limit < std::size(starts); ++limit) {
    EXPECT_EQ(base::utf8Start(text, limit), starts[limit]) << limit;
  }
  EXPECT_EQ(ansiStart("\xB1\xB2\xB3", 2), "\xB1\xB2");  // not UTF-8: a byte each
}

TEST(CodePages, ConvertBothWays) {
  for (const auto& [text, expected] : test_support::readRows(TEST_DATA "code_pages.txt")) {
    const std::uint32_t codePage = std::stoul(text);
    const std::string encoded = test_support::unprintable(text.substr(text.find(' ') + 1));
    const std::string utf8 = test_support::unprintable(expected);
    SCOPED_TRACE(codePage);
    std::string out;
    bool lossy = false;
    const bool converts = codePageToUtf8(codePage, encoded, out, &lossy);
    if (!converts && codePage == 50220) continue;  // some systems lack it
    EXPECT_TRUE(converts);
    EXPECT_EQ(out, utf8);
    EXPECT_TRUE(utf8ToCodePage(codePage, utf8, out, &lossy));
    EXPECT_EQ(out, encoded);
    EXPECT_FALSE(lossy);
  }
}

TEST(CodePages, ReplaceWhatCannotBeCarriedOver) {
  const std::tuple<std::uint32_t, bool, std::string, std::string> cases[] = {
      {28591, false, "1\u20AC\u65E5 2", "1?? 2"},
      {37, false, "\u65E5", "\x6F"},  // a question mark in EBCDIC
      {20127, true, "a\xFC z", "a\uFFFD z"},
      {1200, true, bytes({0x00, 0xD8, 0x5A, 0x00}), "\uFFFDZ"},  // a lone surrogate
  };
  for (const auto& [codePage, decode, text, expected] : cases) {
    std::string out;
    bool lossy = false;
    EXPECT_TRUE((decode ? codePageToUtf8 : utf8ToCodePage)(codePage, text, out, &lossy));
    EXPECT_EQ(out, expected) << codePage;
    EXPECT_TRUE(lossy) << codePage;
  }
  std::string out;
  EXPECT_FALSE(codePageToUtf8(0, "a", out));
}

}  // namespace
}  // namespace platform
