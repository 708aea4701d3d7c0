#include "notify/message_template.h"

#include <utility>

#include <gtest/gtest.h>

#include "platform/system/files.h"
#include "tests/support/temp_dir.h"

namespace {

TEST(MessageTemplate, ReplacesTokens) {
  const notify::TokenValues values{"jd", "J\u00f6rg", "<%daysUntilExpiration%>", -3};
  const std::pair<const char*, const char*> cases[] = {
      {"<%username%>, <%firstName%>", "jd, J\u00f6rg"},
      {"<%daysUntilExpiration%> and <%daysUntilExpiration%>", "-3 and -3"},
      {"<%DaysUntilExpiration%> <%Username%> <%username%",
       "<%DaysUntilExpiration%> <%Username%> <%username%"},
      {"C:<%backslash%>Temp", "C:\\Temp"},
      // Kinds follow one another, so a last name that is a later token is replaced in its turn.
      {"<%lastName%>", "-3"},
      {"<<%username%>>", "<jd>"},
      {"", ""},
  };
  for (const auto& [text, result] : cases) EXPECT_EQ(notify::replaceTokens(text, values), result);
  // But an inserted value is not looked at again for its own kind.
  EXPECT_EQ(notify::replaceTokens("<%username%>", {"<%username%>x", "", "", 0}), "<%username%>x");
}

TEST(MessageTemplate, FallsBackFromHtmlToTextToTheCustomMessage) {
  test_support::TempDir directory;
  config::DebugLog log(false);
  EXPECT_EQ(notify::loadMessageBody("custom\n", log).text, "custom\n");

  const std::string longLine(700, 'a');  // longer than one read
  platform::writeWholeFile("NorvynExpirationEmail.txt", longLine + "\r\nend");
  notify::MessageBody body = notify::loadMessageBody("custom", log);
  EXPECT_EQ(body.text, longLine + "\nend");
  EXPECT_FALSE(body.isHtml);

  platform::writeWholeFile("NorvynExpirationEmail.html", "");
  body = notify::loadMessageBody("custom", log);
  EXPECT_EQ(body.text, "");
  EXPECT_TRUE(body.isHtml);
}

}  // namespace
