// Whole conversations with a scripted server: every line to the server, and what the log says.
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

#include "base/log_null.h"
#include "mail/smtp/smtp_conn_impl.h"
#include "platform/network/security_package.h"
#include "platform/system/files.h"
#include "tests/mail/smtp/conversation.h"
#include "tests/support/fake_network.h"
#include "tests/support/temp_dir.h"

namespace kelvado {
namespace {

class Conversations : public testing::TestWithParam<const char*> {};

TEST_P(Conversations, GoAsWritten) {
  for (const Conversation& conversation : conversationsOf(GetParam())) converse(conversation);
}

INSTANTIATE_TEST_SUITE_P(Of, Conversations,
                         testing::Values("ahead", "early", "extensions", "greeting", "injection",
                                         "kept", "lists", "login", "password", "proxy",
                                         "recipients"),
                         [](const auto& file) { return std::string(file.param); });

TEST(Conversation, LogsInByNtlm) {
#ifdef __SANITIZE_ADDRESS__
  const __lsan::ScopedDisabler leaksOfTheSystemsPackage;  // it never frees its digests
#endif
  platform::SspiStatus status = platform::kSecOk;
  platform::createNtlmClient({"user", "secret", "D"}, "127.0.0.1", status);
  if (status == platform::kSecPackageNotFound) GTEST_SKIP() << "this system has no NTLM";
  for (const Conversation& conversation : conversationsOf("ntlm")) converse(conversation);
}

// The text of the message, byte by byte as it arrives.
TEST(Conversation, TransmitsTheText) {
  const test_support::TempDir directory;
  std::string rendered;
  const auto sendThree = [&rendered](KvMailMan& mailMan, KvEmail& email) {
    mailMan.put_SentMailLog("sent.log");
    email.put_Body("first\n.dot\r\n..two\n.");
    email.AddBcc("", "bcc@site.example");
    email.AddHeaderField("KVZ-Private", "for the program only");
    rendered = mailMan.RenderToMime(email);
    const auto sendMime = [&mailMan](const char* mime) {
      return mailMan.SendMime("Me <me@site.example>", "to@site.example", mime);
    };
    EXPECT_TRUE(mailMan.SendEmail(email)) << mailMan.LastErrorText();
    EXPECT_TRUE(sendMime("A: b\n\n.x"));
    // Would end the mail before it begins, and make commands of the rest.
    EXPECT_FALSE(sendMime(".\r\nQUIT\r\n"));
    EXPECT_FALSE(sendMime(""));
  };
  const auto script = readConversations("== text\nhello from ok to ok bcc ok data rset mail quit");
  const auto messages = converse(script.front(), sendThree).messages;
  ASSERT_EQ(messages.size(), 2U);
  EXPECT_THAT(messages[0], testing::EndsWith("\r\n\r\nfirst\r\n..dot\r\n...two\r\n.."));
  for (const char* hidden : {"bcc@site", "KVX-", "KVZ-"}) {
    EXPECT_THAT(messages[0], Not(HasSubstr(hidden)));
  }
  EXPECT_THAT(rendered, testing::EndsWith("\r\n\r\nfirst\r\n.dot\r\n..two\r\n."));
  EXPECT_EQ(messages[1], "A: b\r\n\r\n..x");
  std::string log;
  ASSERT_TRUE(platform::readWholeFile("sent.log", log));
  const std::string begin = "--BEGIN SENT KELVADO EMAIL--\n";
  const std::string end = "\n--END SENT KELVADO EMAIL--\n";
  EXPECT_EQ(log, begin + messages[0] + end + begin + messages[1] + end);
}

TEST(Conversation, StopsWhenTheApplicationWants) {
  class Aborting : public KvProgress {
   public:
    void AbortCheck(bool& abort) override { abort = true; }
  } sink;
  for (const Conversation& conversation : conversationsOf("abort")) {
    converse(conversation, [&sink](KvMailMan& mailMan, KvEmail&) {
      mailMan.put_Progress(&sink);
      mailMan.put_HeartbeatMs(100);
    });
  }
  setAbortAll(true);
  for (const Conversation& conversation : conversationsOf("abort_all")) converse(conversation);
  setAbortAll(false);
}

TEST(MailMan, FailsWithoutReachingForTheServer) {
  KvMailMan mailMan;
  KvEmail email;
  const auto expectFailure = [&mailMan](bool result, const char* text) {
    EXPECT_FALSE(result);
    EXPECT_THAT(mailMan.LastErrorText(), HasSubstr(text));
  };
  EXPECT_FALSE(mailMan.UnlockComponent(""));
  expectFailure(mailMan.SendEmail(email), "locked");
  expectFailure(mailMan.SendQ(email),
                "<error>Kelvado smtpQ is not installed on this computer</error>");
  ASSERT_TRUE(mailMan.UnlockComponent("code"));
  email.put_From("me@site.example");
  expectFailure(mailMan.SendEmail(email), "<error>No hostname</error>");
  expectFailure(mailMan.SendEmail(nullptr), "<error>Email parameter is NULL in SendEmail</error>");
  mailMan.put_SmtpHost("mail.blocked-relay.invalid");
  expectFailure(mailMan.SendEmail(email), "<error>SMTP protocol failure.");
  expectFailure(mailMan.VerifySmtpLogin(), "<error>SMTP username is empty.</error>");
  expectFailure(mailMan.QuickSend("a@x", "<b@\r\nx>", "s", "b", "host"), "[<b@\r\nx>]");
}

TEST(MailMan, GreetsWithALongerNameWhereTheServerInsists) {
  struct Row {
    const char *name, *fullName, *refusal, *next;
  };
  for (const auto& [name, fullName, refusal, next] :
       {Row{"pc", "pc.site.example", "504 no", "EHLO pc.site.example"},
        {"pc", "pc", "550 no", "EHLO [192.0.2.7]"},
        {"pc", "pc.site.example", "554 no", "HELO pc"},
        {"pc.site.example", "", "504 no", "HELO pc.site.example"}}) {
    test_support::ManualClock clock;
    test_support::FakeNetwork network(clock);
    network.ownName = name;
    network.officialName = fullName;
    network.incoming = {"220 ready\r\n", std::string(refusal) + "\r\n", "250 ok\r\n"};
    base::LogNull log;
    ProgressMonitor progress;
    Call call{log, progress};
    SmtpServer server;
    server.host = "mail.example";
    SmtpConnImpl session(network);
    EXPECT_TRUE(session.connectAndAuthenticate(server, call)) << next;
    EXPECT_EQ(network.sent, std::string("EHLO ") + name + "\r\n" + next + "\r\n");
  }
}

TEST(MailMan, SettlesTheTlsConflictByThePort) {
  for (const auto& [port, ssl, startTls] : {std::tuple(465, true, false), {587, false, true}}) {
    KvMailMan mailMan;
    KvEmail email;
    mailMan.put_SmtpPort(port);
    mailMan.put_SmtpSsl(true);
    mailMan.put_StartTLS(true);
    mailMan.SendEmail(email);  // locked: comes no further
    EXPECT_EQ(mailMan.get_SmtpSsl(), ssl) << port;
    EXPECT_EQ(mailMan.get_StartTLS(), startTls) << port;
  }
}

}  // namespace
}  // namespace kelvado
