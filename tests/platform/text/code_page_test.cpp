#include "platform/text/code_page.h"

#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "base/unicode.h"

namespace platform {
namespace {

std::string bytes(std::initializer_list<int> values) {
  std::string text;
  for (const int value : values) text += static_cast<char>(value);
  return text;
}

TEST(Unicode, MalformedUtf8GivesOneReplacementForEachIllFormedPart) {
  const std::tuple<std::string, std::u16string, bool> cases[] = {
      {"J\xC3\xBCrgen", u"J\u00FCrgen", true},
      {"\xF0\x9F\x94\x91", u"\U0001F511", true},
      {"\xF4\x8F\xBF\xBF", u"\U0010FFFF", true},
      {std::string("a\0b", 3), std::u16string(u"a\0b", 3), true},
      {"\xC0\x80", u"\uFFFD\uFFFD", false},            // overlong NUL
      {"\xE0\x9F\xBF", u"\uFFFD\uFFFD\uFFFD", false},  // overlong
      {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD", false},  // a surrogate
      {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD", false},
      {"\xE2\x82x", u"\uFFFDx", false},
      {"\xF0\x9F\x94", u"\uFFFD", false},
      {"\xFFx\x80", u"\uFFFDx\uFFFD", false},
  };
  for (const auto& [utf8, utf16, valid] : cases) {
    EXPECT_EQ(base::utf8ToUtf16(utf8), utf16) << utf8;
    EXPECT_EQ(base::isValidUtf8(utf8), valid) << utf8;
    EXPECT_EQ(base::utf16ToUtf8(utf16) == utf8, valid);
  }
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
  const std::tuple<std::uint32_t, std::string, std::string> cases[] = {
      {1252, "\x80 \xFC \x8F", "\u20AC \u00FC \u008F"},
      {20866, "\xF0", "\u041F"},
      {950, "\xBA\x7E", "\u6F22"},
      {932, "\x93\xFA\x96{", "\u65E5\u672C"},
      {50220, "\x1B$BF|\x1B(B", "\u65E5"},  // back in the initial state at the end
      {37, "\xC1", "A"},
      {1200, bytes({0xAC, 0x20}), "\u20AC"},
      {65006, bytes({0, 1, 0xF5, 0x11}), "\U0001F511"},
      {65001, "\u20AC", "\u20AC"},
  };
  for (const auto& [codePage, encoded, utf8] : cases) {
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
