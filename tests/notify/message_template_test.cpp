#include "notify/message_template.h"

#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "config/pass_files.h"
#include "platform/system/files.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace std::string_literals;

TEST(MessageTemplate, ReplacesTokensInOneScanAndInHtmlByText) {
  notify::UserRecord user;
  user.username = "j&d";
  user.data.firstName = "<a href=x>";
  user.data.lastName = "<%daysUntilExpiration%>";
  user.age = 3;  // of 0 days
  const std::tuple<const char*, const char*, bool> cases[] = {
      {"<%username%>, <%firstName%>", "j&d, <a href=x>", false},
      {"<b><%username%></b>, <%firstName%>", "<b>j&amp;d</b>, &lt;a href=x&gt;", true},
      {"<%daysUntilExpiration%> and <%daysUntilExpiration%>", "-3 and -3", false},
      {"<%DaysUntilExpiration%> <%Username%> <%username%",
       "<%DaysUntilExpiration%> <%Username%> <%username%", false},
      {"C:<%backslash%>Temp", "C:\\Temp", true},
      {"<%lastName%>", "<%daysUntilExpiration%>", false},
      {"<<%username%>>", "<j&d>", false},
      {"<%user<%backslash%>name%>", "<%user\\name%>", false},
      {"", "", false},
  };
  for (const auto& [text, result, isHtml] : cases) {
    notify::MessageBody body{text, isHtml};
    notify::replaceTokens(body, user);
    EXPECT_EQ(body.text, result) << text;
  }
}

// Which file is the body, and what its bytes are as text. What cannot be used is passed over.
TEST(MessageTemplate, TakesTheFirstTemplateThatIsText) {
  const std::string longLine(700, 'a');
  const struct {
    const char* what;
    std::string html, plain;  // "-": no such file; "/": a folder
    const char* custom;
    std::string text;
    bool isHtml, lost;
    std::size_t problems;
  } cases[] = {
      {"none", "-", "-", "custom\n", "custom\n", false, false, 0},
      {"none at all", "-", "-", "", "", false, false, 0},
      {"plain", "-", longLine + "\r\nend", "custom", longLine + "\nend", false, false, 0},
      {"empty", "", "-", "custom", "", true, false, 0},
      {"UTF-8", "J\u00fcrgen", "-", "", "J\u00fcrgen", true, false, 0},
      {"marked", "\xEF\xBB\xBFJ\u00fcrgen", "-", "", "J\u00fcrgen", true, false, 0},
      {"ANSI", "J\xfcrgen", "-", "", "J\u00fcrgen", true, false, 0},
      {"UTF-16LE", "\xFF\xFEJ\0\xfc\0\r\0\n\0"s, "-", "", "J\u00fc\n", true, false, 0},
      {"UTF-16BE", "\xFE\xFF\0J\0\xfc"s, "-", "", "J\u00fc", true, false, 0},
      {"odd UTF-16", "\xFF\xFEJ\0\xfc"s, "plain", "custom", "plain", false, false, 1},
      {"UTF-16 without a mark", "J\0\xfc\0"s, "-", "custom", "custom", false, false, 1},
      {"marked, not UTF-8", "\xEF\xBB\xBFJ\xfcrgen", "-", "", "", false, true, 1},
      {"folders", "/", "/", "", "", false, true, 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    test_support::TempDir directory;
    for (const auto& [name, bytes] : {std::pair(config::kHtmlTemplateFile, c.html),
                                      std::pair(config::kTextTemplateFile, c.plain)}) {
      if (bytes == "/") {
        platform::createDirectory(name);
      } else if (bytes != "-") {
        platform::writeWholeFile(name, bytes);
      }
    }
    config::DebugLog log(false);
    const notify::MessageBody body = notify::loadMessageBody(c.custom, log);
    EXPECT_EQ(body.text, c.text);
    EXPECT_EQ(body.isHtml, c.isHtml);
    EXPECT_EQ(body.templateLost, c.lost);
    EXPECT_EQ(notify::findTemplateProblems().size(), c.problems);
  }
}

}  // namespace
