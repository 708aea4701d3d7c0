// The templates of mails: which counts, what its bytes are as text, and what its tokens become.
#include "notify/message_template.h"

#include <sstream>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "base/ascii.h"
#include "config/pass_files.h"
#include "notify/mail_templates.h"
#include "notify/user_tokens.h"
#include "notify/warning_email.h"
#include "platform/system/files.h"
#include "tests/support/manual_clock.h"
#include "tests/support/rows.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace std::string_literals;
using notify::TextFormat;

TEST(MessageTemplate, ReplacesTokensInOneScanAndInHtmlByText) {
  test_support::ManualClock clock;
  notify::UserRecord user;
  user.username = "j&d";
  user.data.firstName = "<a href=x>";
  user.data.lastName = "<%daysUntilExpiration%>";
  user.age = 3;  // of 0 days
  const std::tuple<const char*, const char*, TextFormat> cases[] = {
      {"<%username%>, <%firstName%>", "j&d, <a href=x>", TextFormat::Plain},
      {"<b><%username%></b>, <%firstName%>", "<b>j&amp;d</b>, &lt;a href=x&gt;", TextFormat::Html},
      {"<%daysUntilExpiration%> and <%daysUntilExpiration%>", "-3 and -3", TextFormat::Plain},
      {"<%DaysUntilExpiration%> <%Username%> <%username%",
       "<%DaysUntilExpiration%> <%Username%> <%username%", TextFormat::Plain},
      {"C:<%backslash%>Temp", "C:\\Temp", TextFormat::Html},
      {"<%lastName%>", "<%daysUntilExpiration%>", TextFormat::Plain},
      {"<<%username%>>", "<j&d>", TextFormat::Plain},
      {"<%user<%backslash%>name%>", "<%user\\name%>", TextFormat::Plain},
      {"", "", TextFormat::Plain},
  };
  for (const auto& [text, result, format] : cases) {
    EXPECT_EQ(notify::PreparedText(text).filled(notify::UserTokens(user, clock, ""), format),
              result)
        << text;
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
    test_support::ManualClock clock;
    config::DebugLog log(false);
    config::ExpirationSettings settings;
    settings.emailCustomMsg = c.custom;
    const notify::MailTemplates templates(settings);
    kelvado::KvEmail email;
    EXPECT_EQ(notify::composeWarning(email, settings, templates,
                                     notify::placeholderUser("a@b.example"), clock, log),
              !c.lost);
    if (!c.lost) {
      const char* const body = c.isHtml ? email.GetHtmlBody() : email.GetPlainTextBody();
      ASSERT_NE(body, nullptr);
      EXPECT_EQ(body, base::trimmed(c.text));
      EXPECT_EQ(email.GetHtmlBody() != nullptr, c.isHtml);
    }
    EXPECT_EQ(templates.problems().size(), c.problems);
  }
}

// The files of a folder, emailLanguage, and for a user what the mail is made from and its subject.
TEST(MessageTemplate, IsChosenByPolicyAndLanguage) {
  for (const auto& [files, language, slot, preferred, days, source, subject] :
       test_support::rows<7>(NOTIFY_TEST_DATA "/templates.txt", "choices")) {
    SCOPED_TRACE(files + " for " + preferred);
    test_support::TempDir directory;
    std::istringstream names(files);
    for (std::string name; names >> name;) {
      const bool html = base::lowered(name).ends_with("html");
      platform::writeWholeFile(name, html ? "<TITLE>Title\n &amp; more</TITLE><p>" + name
                                          : "subject: Line\r\n\r\n" + name);
    }
    test_support::ManualClock clock;
    config::DebugLog log(false);
    config::ExpirationSettings settings;
    settings.emailLanguage = language;
    settings.emailSubject = "Soon";
    settings.emailTextAlternative = true;
    const notify::MailTemplates templates(settings);
    notify::UserRecord user = notify::placeholderUser("a@b.example");
    user.slot = std::stoi(slot);
    user.maxAge = std::stoi(days);
    user.data.preferredLanguage = preferred;
    kelvado::KvEmail email;
    EXPECT_TRUE(notify::composeWarning(email, settings, templates, user, clock, log));
    EXPECT_EQ(base::lowered(notify::warningSource(templates, settings, user)),
              base::lowered(source));
    EXPECT_STREQ(email.GetHeaderField("Subject"), subject.c_str());
  }
}

TEST(MessageTemplate, FillsTheTokensInTheFormOfTheLanguage) {
  test_support::ManualClock clock;
  notify::UserRecord user = notify::placeholderUser("jane@b.example");
  user.policyName = "Board";
  user.passwordSet = clock.now / test_support::kFileTimeSecond - 86400;  // 4 March, 09:07
  user.data.domain = "corp.example";
  user.data.managerName = "Max & Co";
  for (const auto& [language, text, filled] :
       test_support::rows<3>(NOTIFY_TEST_DATA "/templates.txt", "tokens")) {
    const notify::UserTokens values(user, clock, language);
    EXPECT_EQ(notify::PreparedText(text).filled(values, TextFormat::Html), filled) << language;
  }
}

}  // namespace
