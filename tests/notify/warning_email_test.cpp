// The warning mail as a mail server gets it.
#include "notify/warning_email.h"

#include <memory>

#include <gtest/gtest.h>

#include "console/smtp_catcher.h"
#include "platform/file/reg_registry.h"
#include "tests/support/test_site.h"
#include "tests/support/text_file.h"

namespace {

TEST(WarningEmail, TakesTheFixedWordsOnceThePasswordHasExpired) {
  const struct {
    int countdown;
    const char* part;
    const char* contentType;
  } cases[] = {
      {1, "<b>1</b> day for walter", "Content-Type: text/html"},
      {0,
       "Your Windows password has expired.\r\n\r\nYou will be prompted to change your password "
       "prior to your next logon.\r\n",
       "Content-Type: text/plain"},
      {-3, "Your Windows password has expired.\r\n\r\nYou will be", "Content-Type: text/plain"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.countdown);
    test_support::TestSite site;
    site.writeOut();
    site.write("NorvynExpirationEmail.html", "<b><%daysUntilExpiration%></b> day for <%username%>");
    console::SmtpCatcher catcher;
    console::CatcherOptions options;
    options.directory = "mails";
    std::string error;
    ASSERT_TRUE(catcher.start(options, error)) << error;
    const auto registry = platform::RegRegistry::load("site.reg", error);
    ASSERT_TRUE(registry) << error;
    config::DebugLog log(false);
    config::ExpirationSettings settings;
    settings.smtpServer = "127.0.0.1";
    settings.smtpPort = catcher.port();
    settings.emailFromAddress = "Help Desk <desk@site.example>";
    settings.emailSubject = "Change it";
    const directory::UserGlobals user;
    EXPECT_TRUE(notify::sendWarningEmail({*registry, site.clock, log, settings, user}, "walter",
                                         "walter@site.example", c.countdown));
    ASSERT_EQ(catcher.savedFiles().size(), 1U);
    const std::string mail = test_support::readBytes(catcher.savedFiles()[0]);
    for (const char* expected :
         {c.part, c.contentType, "\r\nX-Priority: 1\r\n", "\r\nSubject: Change it\r\n",
          "\r\nFrom: \"Help Desk\" <desk@site.example>\r\n"}) {
      EXPECT_NE(mail.find(expected), std::string::npos) << expected << "\n" << mail;
    }
    EXPECT_EQ(site.registryNumber(config::kProductKey, "expirationLastRunDay"), 5U);
  }
}

}  // namespace
