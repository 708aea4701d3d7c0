// Strings, buffers, the log and the rules that every public object shares.
#include <new>
#include <string>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>

#include "base/ascii.h"
#include "base/text.h"
#include "mail/core/cls_base.h"
#include "mail/core/data_buffer.h"
#include "mail/core/kv_string.h"
#include "mail/core/string_buffer.h"
#include "mail/mime/kv_email.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace kelvado {
namespace {

TEST(StringBuffer, ChangesTextInPlace) {
  const auto endLinesWithCrLf = [](StringBuffer& s) {
    base::appendWithCrLf(std::exchange(s.text(), {}), s.text());
  };
  const std::tuple<std::string_view, std::string_view, void (*)(StringBuffer&)> rows[] = {
      {"ab", std::string_view("abc\0d", 5), [](StringBuffer& s) { s.appendN("c\0d", 3); }},
      // Latin-1 capitals, too; 0xE0 and beyond are no capitals.
      {"\xC0\x42\xDF\xE0z[", "\xE0\x62\xFF\xE0z[", [](StringBuffer& s) { s.toLowerCase(); }},
      {" \t\r\n a b \n", "a b", [](StringBuffer& s) { s.trim(); }},
      {" \n", "", [](StringBuffer& s) { s.trim(); }},
      // What was put in is not looked at again.
      {"aXaXX", "aXYaXYXY", [](StringBuffer& s) { s.replaceAll("X", "XY"); }},
      {"abc", "abc", [](StringBuffer& s) { s.replaceAll("", "x"); }},
      {"a\nb\rc\r\nd\r", "a\r\nb\r\nc\r\nd\r\n", endLinesWithCrLf},
      {"\r\r\n\n", "\r\n\r\n\r\n", endLinesWithCrLf},
      {"", "00AFFF",
       [](StringBuffer& s) { s.appendHex(DataBuffer(std::string("\0\xAF\xFF", 3))); }},
  };
  for (const auto& [before, after, change] : rows) {
    StringBuffer text(before);
    change(text);
    EXPECT_EQ(text.view(), after);
  }
}

TEST(StringBuffer, FindsTheFirst8bitByteWhereverItIs) {
  for (std::size_t at = 0; at < 20; ++at) {
    std::string text(20, '\x7F');
    EXPECT_FALSE(base::contains8bit(text));
    text[at] = '\x80';
    EXPECT_TRUE(base::contains8bit(text)) << at;
  }
}

TEST(ValidityDeathTest, ADestroyedObjectStopsTheProcess) {
  alignas(StringBuffer) unsigned char place[sizeof(StringBuffer)];
  auto* text = new (place) StringBuffer("x");
  text->~StringBuffer();
  EXPECT_DEATH(text->size(), "");
}

TEST(ErrorLog, RendersEachKindOfEntry) {
  ErrorLog log;
  log.EnterContext("AddTo", true);
  log.LogData("name", "a\tb");
  log.LogError("x < \"y\" & z");
  log.EnterContext("inner", false);
  log.LogInfo("plain \"quoted\"");
  log.LogData("done", "<![CDATA[a&b]]>");
  log.LogRaw("<raw/>\r\n");
  log.LeaveContext();
  log.LeaveContext();
  log.LeaveContext();  // one too many: the root stays open
  log.LogError("two\nlines");
  EXPECT_EQ(log.text(),
            "<KelvadoLog>\r\n<AddTo>\r\n<name><![CDATA[a\tb]]></name>\r\n"
            "<error><![CDATA[x < \"y\" & z]]></error>\r\n"
            "<inner>\r\n<info>plain \"quoted\"</info>\r\n<done><![CDATA[a&b]]></done>\r\n"
            "<raw/>\r\n</inner>\r\n</AddTo>\r\n"
            "<error><![CDATA[two\nlines]]></error>\r\n</KelvadoLog>\r\n");
  EXPECT_EQ(log.html(),
            "KelvadoLog:<blockquote>\r\nAddTo:<blockquote>\r\nname: a\tb<br>\r\n"
            "x &lt; &quot;y&quot; &amp; z<br>\r\n"
            "inner:<blockquote>\r\nplain &quot;quoted&quot;<br>\r\n"
            "done: &lt;![CDATA[a&amp;b]]&gt;<br>\r\n&lt;raw/&gt;\r\n<br>\r\n"
            "</blockquote>\r\n</blockquote>\r\ntwo\nlines<br>\r\n</blockquote>\r\n");
  log.Clear();
  EXPECT_EQ(log.text(), "<KelvadoLog>\r\n</KelvadoLog>\r\n");
}

TEST(MethodBracket, AFailedMethodLeavesItsRecord) {
  KvEmail email;
  EXPECT_FALSE(email.AddTo(" Joe ", "<joe@example.org>"));
  const std::string record =
      "<KelvadoLog>\r\n<AddTo>\r\n<DllDate>May 31 2008</DllDate>\r\n<name>Joe</name>\r\n"
      "<address><![CDATA[<joe@example.org>]]></address>\r\n"
      "<error><![CDATA[Invalid email address: name = [Joe], address = [<joe@example.org>]]]>"
      "</error>\r\n</AddTo>\r\n</KelvadoLog>\r\n";
  EXPECT_EQ(email.LastErrorText(), record);
  const test_support::TempDir folder;
  ASSERT_TRUE(email.SaveLastError("errors.xml"));
  EXPECT_EQ(test_support::readBytes("errors.xml"), record);
  EXPECT_FALSE(email.SaveLastError("none/errors.xml"));

  // The next method starts a new log, and success leaves no error.
  EXPECT_TRUE(email.AddTo("", "joe@example.org"));
  EXPECT_EQ(std::string(email.LastErrorText()).find("error"), std::string::npos);
}

TEST(ResultRing, TheEleventhResultTakesTheFirstSlot) {
  KvEmail email;
  email.put_Subject("first");
  const char* first = email.GetHeaderField("Subject");
  email.put_Subject("later");
  const char* previous = first;
  for (int call = 2; call <= 10; ++call) {
    const char* next = email.GetHeaderField("Subject");
    EXPECT_NE(next, previous);
    previous = next;
    EXPECT_STREQ(first, "first");
  }
  EXPECT_EQ(email.GetHeaderField("Nothing"), nullptr);  // null takes no slot
  EXPECT_EQ(email.GetHeaderField("Subject"), first);
  EXPECT_STREQ(first, "later");
}

TEST(KvString, GivesWhatWasSetInEachEncoding) {
  KvString text;
  text.put_Utf8(true);
  text.setString("\xC3\xBC \xF0\x9F\x98\x80");
  EXPECT_EQ(text.getUnicode(), u"\u00FC \U0001F600");
  text.append(" +");
  EXPECT_STREQ(text.getString(), "\xC3\xBC \xF0\x9F\x98\x80 +");
  // What is not UTF-8 is repaired, so that no later step meets half a character.
  text.setStringUtf8("a\xC3");
  EXPECT_EQ(text.getUtf8(), "a\xEF\xBF\xBD");
  text.setString(nullptr);
  EXPECT_TRUE(text.isEmpty());
}

}  // namespace
}  // namespace kelvado
