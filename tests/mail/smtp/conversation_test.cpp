// Whole conversations with a scripted server: every byte to the server, and what the log says.
#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mail/mime/kv_email.h"
#include "mail/smtp/kv_mail_man.h"
#include "platform/files.h"
#include "tests/support/scripted_smtp_server.h"
#include "tests/support/temp_dir.h"

namespace kelvado {
namespace {

using test_support::ScriptedSmtpServer;

// Parts of scripts.
const std::string kHello =
    "S: 220 ready\\r\\n\n"
    "C: EHLO pc.example\n"
    "S: 250 mail\\r\\n\n";
const std::string kEnvelope =
    "C: MAIL FROM:<me@site.example>\n"
    "S: 250 ok\\r\\n\n"
    "C: RCPT TO:<to@site.example>\n"
    "S: 250 ok\\r\\n\n";
const std::string kData =
    "C: DATA\n"
    "S: 354 go on\\r\\n\n"
    "DATA\n"
    "S: 250 queued\\r\\n\n";
const std::string kQuit =
    "C: QUIT\n"
    "S: 221 bye\\r\\n\n";

std::string hello(const std::string& extensions) {
  return "S: 220 ready\\r\\n\nC: EHLO pc.example\nS: " + extensions + "\n";
}

void fill(KvEmail& email) {
  email.put_From("me@site.example");
  email.AddTo("", "to@site.example");
  email.put_Subject("subject");
  email.put_Body("text");
}

void setUp(KvMailMan& mailMan, const ScriptedSmtpServer& server) {
  mailMan.UnlockComponent("code");
  mailMan.put_SmtpHost("127.0.0.1");
  mailMan.put_SmtpPort(server.port());
  mailMan.put_HeloHostname("pc.example");
  mailMan.put_ReadTimeout(5);
}

void logIn(KvMailMan& mailMan) {
  mailMan.put_SmtpUsername("user");
  mailMan.put_SmtpPassword("secret");
}

struct ConversationCase {
  const char* what;
  std::string script;
  std::function<void(KvMailMan&, KvEmail&)> prepare;
  bool sent;
  std::vector<std::string> logged;  // in this order
};

void expectInOrder(const std::string& log, const std::vector<std::string>& texts) {
  std::size_t from = 0;
  for (const std::string& text : texts) {
    const std::size_t at = log.find(text, from);
    ASSERT_NE(at, std::string::npos) << "\"" << text << "\" is missing in\n" << log;
    from = at + text.size();
  }
}

void runConversation(const ConversationCase& c) {
  SCOPED_TRACE(c.what);
  ScriptedSmtpServer server({c.script});
  std::string log;
  {
    KvMailMan mailMan;
    KvEmail email;
    setUp(mailMan, server);
    fill(email);
    c.prepare(mailMan, email);
    EXPECT_EQ(mailMan.SendEmail(email), c.sent);
    log = mailMan.LastErrorText();
  }
  expectInOrder(log, c.logged);
  EXPECT_EQ(log.find("secret"), std::string::npos) << log;
  EXPECT_EQ(log.find("c2VjcmV0"), std::string::npos) << log;
  EXPECT_THAT(server.surprises(), testing::IsEmpty());
}

void nothing(KvMailMan&, KvEmail&) {}

TEST(Conversation, GreetsAndFallsBackToHelo) {
  const std::string helo = "C: HELO pc.example\n";
  const std::vector<ConversationCase> cases = {
      {"many-line greeting and reply in one segment",
       "S: 220-hello\\r\\n220-there\\r\\n220 ready\\r\\n\nC: EHLO pc.example\n"
       "S: 250-mail\\r\\n250-SIZE\\r\\n250 HELP\\r\\n\n" +
           kEnvelope + kData + kQuit,
       nothing,
       true,
       {"<SendEmail>",
        "<DllDate>",
        "<info>No connection, need new SMTP connection.</info>",
        "<SMTP_Connect>",
        "No SMTP login provided.<",
        "No SMTP password provided.<",
        "Skipping SMTP authentication because no login/password provided.<",
        "Connecting to SMTP server 127.0.0.1:",
        "<smtp_host>127.0.0.1</smtp_host>",
        "<smtp_user>NULL</smtp_user>",
        "<InitialResponse>",
        "sendingHello",
        "<helloResponse>",
        "<login_method>NONE</login_method>",
        "CONNECTED to ESMTP server 127.0.0.1:",
        "</SMTP_Connect>",
        "<subject>subject</subject>",
        "<reversePath>me@site.example</reversePath>",
        "<email_size>",
        "Sent DATA terminator",
        "<NumAccepted>1</NumAccepted>",
        "<NumRejected>0</NumRejected>"}},
      {"HELO",
       "S: 220 ready\\r\\n\nC: EHLO pc.example\nS: 502 what\\r\\n\n" + helo +
           "S: 250 mail\\r\\n\n" + kEnvelope + kData + kQuit,
       nothing,
       true,
       {"EHLO failed, sending HELO...", "<HeloResponse>", "CONNECTED to SMTP server"}},
      {"a second HELO with the server's own name",
       "S: 220 ready\\r\\n\nC: EHLO pc.example\nS: 250\\r\\n\n" + helo +
           "S: 501 no\\r\\n\nC: HELO 127.0.0.1\nS: 250 mail\\r\\n\n" + kEnvelope + kData + kQuit,
       nothing,
       true,
       {"Unrecognized response from SMTP server", "Failed to get response to Hello (HELO)",
        "<HeloResponse>"}},
      {"no HELO at all",
       "S: 220 ready\\r\\n\nC: EHLO pc.example\nS: 500 no\\r\\n\n" + helo +
           "S: 501 no\\r\\n\nC: HELO 127.0.0.1\nS: 501 no\\r\\n\n",
       nothing,
       false,
       {"Failed to get response to Hello (HELO)", "Failed to get response to 2nd-try Hello (HELO)",
        "Failed to connect to SMTP server.</error>"}},
      {"a greeting of three characters",
       "S: 220\\r\\n\n",
       nothing,
       false,
       {"<error>Unrecognized response from SMTP server</error>",
        "<error>Failed to get initial SMTP response..</error>",
        "<error>The SMTP server may be denying access for this domain.</error>"}},
      {"two blanks of credentials are none",
       hello("250 AUTH LOGIN\\r\\n") + kEnvelope + kData + kQuit,
       [](KvMailMan& mailMan, KvEmail&) {
         mailMan.put_SmtpUsername("user");
         mailMan.put_SmtpPassword("");
       },
       true,
       {"No SMTP password provided..", "no login/password provided..",
        "<login_method>NONE</login_method>"}},
  };
  for (const ConversationCase& c : cases) runConversation(c);
}

TEST(Conversation, LogsIn) {
  const std::string rest = kEnvelope + kData + kQuit;
  const std::string login =
      "C: AUTH LOGIN\nS: 334 VXNlcm5hbWU6\\r\\n\nC: dXNlcg==\nS: 334 UGFzc3dvcmQ6\\r\\n\n"
      "C: c2VjcmV0\n";
  const std::string plain = "C: AUTH PLAIN dXNlcgB1c2VyAHNlY3JldA==\n";
  const auto method = [](const char* name) {
    return [name](KvMailMan& mailMan, KvEmail&) {
      logIn(mailMan);
      mailMan.put_SmtpAuthMethod(name);
    };
  };
  const std::vector<ConversationCase> cases = {
      {"LOGIN before CRAM-MD5",
       hello("250 AUTH CRAM-MD5 LOGIN\\r\\n") + login + "S: 235 welcome\\r\\n\n" + rest,
       method(""),
       true,
       {"<smtp_user>user</smtp_user>", "<login_method>LOGIN</login_method>"}},
      {"LOGIN refused",
       hello("250 AUTH LOGIN\\r\\n") + login + "S: 535 no: secret\\r\\n\n",
       method(""),
       false,
       {"Failed to get response to login password", "Failed to login using LOGIN method",
        "Failed to connect to SMTP server."}},
      {"PLAIN",
       hello("250 AUTH PLAIN\\r\\n") + plain + "S: 235 welcome\\r\\n\n" + rest,
       method(""),
       true,
       {"This SMTP server did not list authentication methods.",
        "<login_method>PLAIN</login_method>"}},
      {"PLAIN forced on a server that lists LOGIN",
       hello("250 AUTH LOGIN\\r\\n") + plain + "S: 235 welcome\\r\\n\n" + rest,
       method("plain"),
       true,
       {"<login_method>PLAIN</login_method>"}},
      {"CRAM-MD5, with the challenge of RFC 2195",
       hello("250 AUTH CRAM-MD5 PLAIN\\r\\n") +
           "C: AUTH CRAM-MD5\n"
           "S: 334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+\\r\\n\n"
           "C: dGltIGI5MTNhNjAyYzdlZGE3YTQ5NWI0ZTZlNzMzNGQzODkw\nS: 235 ok\\r\\n\n" +
           rest,
       [](KvMailMan& mailMan, KvEmail&) {
         mailMan.put_SmtpUsername("tim");
         mailMan.put_SmtpPassword("tanstaaftanstaaf");
       },
       true,
       {"<login_method>CRAM_MD5</login_method>"}},
      {"methods that are not implemented",
       hello("250 AUTH ANONYMOUS GSSAPI\\r\\n"),
       method(""),
       false,
       {"<login_method>GSSAPI</login_method>", "GSSAPI login method not supported"}},
      {"no method at all goes on without",
       hello("250 mail\\r\\n") + rest,
       method("none"),
       true,
       {"<login_method>NONE or already authenticated</login_method>"}},
      {"after HELO only LOGIN",
       "S: 220 ready\\r\\n\nC: EHLO pc.example\nS: 502 what\\r\\n\nC: HELO pc.example\n"
       "S: 250 mail\\r\\n\n" +
           login + "S: 235 welcome\\r\\n\n" + rest,
       method("CRAM-MD5"),
       true,
       {"CONNECTED to SMTP server"}},
  };
  for (const ConversationCase& c : cases) runConversation(c);
}

TEST(Conversation, OffersRecipients) {
  const std::string from = "C: MAIL FROM:<me@site.example>\nS: 250 ok\\r\\n\n";
  const auto threeKinds = [](KvMailMan&, KvEmail& email) {
    email.AddCC("", "cc@site.example");
    email.AddBcc("", "bcc@site.example");
  };
  const std::string to = "C: RCPT TO:<to@site.example>\n";
  const std::string cc = "C: RCPT TO:<cc@site.example>\n";
  const std::string bcc = "C: RCPT TO:<bcc@site.example>\n";
  const std::string ok = "S: 250 ok\\r\\n\n";
  const std::string no = "S: 550 no\\r\\n\n";
  const std::string forwarded = "S: 251 will forward\\r\\n\n";
  const std::vector<ConversationCase> cases = {
      {"251 is a rejection, and the others get it",
       kHello + from + to + forwarded + cc + ok + bcc + ok + kData + kQuit,
       threeKinds,
       true,
       {"Failed when sending RCPT TO:<to@site.example>",
        "<bad_address>to@site.example</bad_address>",
        "Warning: failed to send to 1 recipient(s), continuing to send to 2 recipient(s)",
        "<NumAccepted>2</NumAccepted>", "<NumRejected>1</NumRejected>"}},
      {"nobody accepted",
       kHello + from + to + no + cc + no + bcc + no + kQuit,
       threeKinds,
       false,
       {"RCPT TO:", "cc RCPT TO:", "bcc RCPT TO:", "<NumSuccess>0</NumSuccess>",
        "<NumTotal>3</NumTotal>", "<error>Send failed.</error>"}},
      {"all or none",
       kHello + from + to + ok + cc + no + bcc + ok + kQuit,
       [&threeKinds](KvMailMan& mailMan, KvEmail& email) {
         threeKinds(mailMan, email);
         mailMan.put_AllOrNone(true);
       },
       false,
       {"One or more RCPT TO commands failed.", "<error>Send failed.</error>"}},
      {"accepted by all, refused after DATA",
       kHello + kEnvelope + "C: DATA\nS: 354 go on\\r\\n\nDATA\nS: 554 spam\\r\\n\n" + kQuit,
       nothing,
       false,
       {"Failed when sending end-of-body", "<CommandSent>true</CommandSent>",
        "<GotResponseCode>554</GotResponseCode>", "<TimedOut>false</TimedOut>",
        "<Aborted>false</Aborted>", "<error>Partial send failure.</error>"}},
      {"delivery status",
       hello("250-mail\\r\\n250 dsn\\r\\n") +
           "C: MAIL FROM:<me@site.example> RET=HDRS ENVID=id7\n" + ok +
           "C: RCPT TO:<to@site.example> NOTIFY=FAILURE\n" + ok + kData + kQuit,
       [](KvMailMan& mailMan, KvEmail&) {
         mailMan.put_DsnRet("HDRS");
         mailMan.put_DsnEnvid("id7");
         mailMan.put_DsnNotify("FAILURE");
       },
       true,
       {}},
      {"no delivery status when it is not offered",
       kHello + kEnvelope + kData + kQuit,
       [](KvMailMan& mailMan, KvEmail&) { mailMan.put_DsnNotify("FAILURE"); },
       true,
       {}},
      {"one by one; a rejection needs a reset",
       kHello + from + to + no + "C: RSET\n" + ok + from + cc + ok + kData + "C: RSET\n" + ok +
           from + bcc + ok + kData + kQuit,
       [&threeKinds](KvMailMan& mailMan, KvEmail& email) {
         threeKinds(mailMan, email);
         mailMan.put_SendIndividual(true);
       },
       true,
       {"<NumAccepted>2</NumAccepted>", "<NumRejected>1</NumRejected>"}},
  };
  for (const ConversationCase& c : cases) runConversation(c);
}

// The text of the message, byte by byte as it arrives.
TEST(Conversation, TransmitsTheText) {
  ScriptedSmtpServer server({kHello + kEnvelope +
                             "C: RCPT TO:<bcc@site.example>\nS: 250 ok\\r\\n\n" + kData +
                             "C: RSET\nS: 250 ok\\r\\n\n" + kEnvelope + kData + kQuit});
  const test_support::TempDir directory;
  std::string rendered;
  {
    KvMailMan mailMan;
    setUp(mailMan, server);
    mailMan.put_SentMailLog("sent.log");
    KvEmail email;
    fill(email);
    email.put_Body("first\n.dot\r\n..two\n.");
    email.AddBcc("", "bcc@site.example");
    rendered = mailMan.RenderToMime(email);
    ASSERT_TRUE(mailMan.SendEmail(email)) << mailMan.LastErrorText();
    ASSERT_TRUE(mailMan.SendMime("Me <me@site.example>", "to@site.example", "A: b\n\n.x"))
        << mailMan.LastErrorText();
    EXPECT_FALSE(mailMan.SendMime("me@site.example", "to@site.example", ".\r\nQUIT\r\n"));
    EXPECT_FALSE(mailMan.SendMime("me@site.example", "to@site.example", ""));
  }
  EXPECT_THAT(server.surprises(), testing::IsEmpty());
  const std::vector<std::string> messages = server.messages();
  ASSERT_EQ(messages.size(), 2U);
  EXPECT_THAT(messages[0], testing::EndsWith("\r\n\r\nfirst\r\n..dot\r\n...two\r\n.."));
  EXPECT_THAT(messages[0], testing::Not(testing::HasSubstr("bcc@site.example")));
  EXPECT_THAT(messages[0], testing::Not(testing::HasSubstr("KVX-")));
  EXPECT_THAT(rendered, testing::EndsWith("\r\n\r\nfirst\r\n.dot\r\n..two\r\n."));
  EXPECT_EQ(messages[1], "A: b\r\n\r\n..x");
  std::string log;
  ASSERT_TRUE(platform::readWholeFile("sent.log", log));
  EXPECT_EQ(log, "--BEGIN SENT KELVADO EMAIL--\n" + messages[0] +
                     "\n--END SENT KELVADO EMAIL--\n--BEGIN SENT KELVADO EMAIL--\n" + messages[1] +
                     "\n--END SENT KELVADO EMAIL--\n");
}

// A message of more than one piece arrives whole.
TEST(Conversation, SendsALongTextInPieces) {
  ScriptedSmtpServer server({kHello + kEnvelope + kData + kQuit});
  std::string mime = "A: b\r\n";
  for (int line = 0; line < 5000; ++line) mime += "\r\n.line " + std::to_string(line);
  class Percents : public KvProgress {
   public:
    std::vector<int> told;
    void PercentDone(int percent, bool&) override { told.push_back(percent); }
  } percents;
  {
    KvMailMan mailMan;
    setUp(mailMan, server);
    mailMan.put_Progress(&percents);
    ASSERT_TRUE(mailMan.SendMime("me@site.example", "to@site.example", mime.c_str()));
  }
  std::string stuffed = mime;
  for (std::size_t at = 0; (at = stuffed.find("\n.", at)) != std::string::npos; at += 3) {
    stuffed.insert(at + 1, ".");
  }
  EXPECT_EQ(server.messages(), std::vector<std::string>{stuffed});
  EXPECT_TRUE(std::is_sorted(percents.told.begin(), percents.told.end()));
  EXPECT_GT(percents.told.size(), 1U);
  EXPECT_EQ(percents.told.back(), 100);
}

TEST(Conversation, KeepsAConnectionThatAnswers) {
  const std::string again = "C: RSET\nS: 250 ok\\r\\n\n" + kEnvelope + kData;
  const std::string limit =
      "C: RSET\nS: 250 ok\\r\\n\nC: MAIL FROM:<me@site.example>\n"
      "S: 421 Maximum allowed messages reached\\r\\n\n";
  struct Case {
    const char* what;
    std::vector<std::string> scripts;
    std::function<void(KvMailMan&)> between;
    bool sent;
    const char* logged;
  };
  const auto leave = [](KvMailMan&) {};
  const std::string first = kHello + kEnvelope + kData;
  const Case cases[] = {
      {"kept",
       {first + again + kQuit},
       leave,
       true,
       "Using existing/open SMTP connection to send email."},
      {"RSET refused",
       {first + "C: RSET\nS: 421 idle\\r\\n\n", first + kQuit},
       leave,
       true,
       "<info>RSET failed.</info>\r\n<info>Need new SMTP connection</info>"},
      {"gone meanwhile", {first + "HANGUP", first + kQuit}, leave, true, "RSET failed."},
      {"other settings",
       {first, first + kQuit},
       [](KvMailMan& mailMan) { mailMan.put_ReadTimeout(6); },
       true,
       "need new SMTP connection"},
      {"TLS wanted from now on",
       {first, "S: 220 ready\\r\\n\nC: STARTTLS\nS: 454 no\\r\\n\n"},
       [](KvMailMan& mailMan) { mailMan.put_StartTLS(true); },
       false,
       "No secure connection, need new SMTP connection."},
      {"the server's limit",
       {first + limit},
       leave,
       false,
       "<info>Need new SMTP connection</info>"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ScriptedSmtpServer server(c.scripts);
    {
      KvMailMan mailMan;
      KvEmail email;
      setUp(mailMan, server);
      fill(email);
      ASSERT_TRUE(mailMan.SendEmail(email)) << mailMan.LastErrorText();
      c.between(mailMan);
      EXPECT_EQ(mailMan.SendEmail(email), c.sent);
      EXPECT_THAT(mailMan.LastErrorText(), testing::HasSubstr(c.logged));
    }
    EXPECT_THAT(server.surprises(), testing::IsEmpty());
    EXPECT_EQ(server.connections(), static_cast<int>(c.scripts.size()));
  }
}

// In a bundle, the server's limit on messages is no reason to lose one.
TEST(Conversation, ABundleGoesOnOverANewConnection) {
  ScriptedSmtpServer server({kHello + kEnvelope + kData +
                                 "C: RSET\nS: 250 ok\\r\\n\nC: MAIL FROM:<me@site.example>\n"
                                 "S: 421 maximum allowed messages\\r\\n\n",
                             kHello + kEnvelope + kData + kQuit});
  {
    KvMailMan mailMan;
    KvEmail email;
    setUp(mailMan, server);
    fill(email);
    EXPECT_TRUE(mailMan.SendBundle({&email, &email})) << mailMan.LastErrorText();
    expectInOrder(mailMan.LastErrorText(), {"Sending message 1", "Sending message 2"});
  }
  EXPECT_THAT(server.surprises(), testing::IsEmpty());
  EXPECT_EQ(server.messages().size(), 2U);
}

TEST(Conversation, SendsToLists) {
  const std::string rcpts =
      "C: MAIL FROM:<me@site.example>\nS: 250 ok\\r\\n\nC: RCPT TO:<a@site.example>\nS: 250 "
      "ok\\r\\n\n"
      "C: RCPT TO:<b@site.example>\nS: 250 ok\\r\\n\n";
  const test_support::TempDir directory;
  ASSERT_TRUE(platform::writeWholeFile("list.txt", "a@site.example\r\n\n  b@site.example"));
  ASSERT_TRUE(platform::writeWholeFile("empty.txt", "\n\n"));
  const auto listFile = [](const char* name) {
    return [name](KvMailMan&, KvEmail& email) { email.AddHeaderField("KVX-FileDistList", name); };
  };
  runConversation({"file",
                   kHello + rcpts + kData + kQuit,
                   listFile("list.txt"),
                   true,
                   {"<info>Mail sent to 2 recipients</info>"}});
  runConversation({"empty file",
                   kHello + kQuit,
                   listFile("empty.txt"),
                   false,
                   {"<error>The distribution list is empty</error>"}});
  ScriptedSmtpServer server({kHello + rcpts + kData + kQuit});
  KvMailMan mailMan;
  KvEmail email;
  setUp(mailMan, server);
  fill(email);
  EXPECT_TRUE(mailMan.SendToDistributionList(email, {"a@site.example", "b@site.example"}));
  EXPECT_FALSE(mailMan.SendToDistributionList(email, {}));
  EXPECT_THAT(mailMan.LastErrorText(),
              testing::HasSubstr("<error>The distribution list is empty.</error>"));
}

// Values that would end a command and begin another.
TEST(Conversation, NoValueAddsACommand) {
  using Prepare = std::function<void(KvMailMan&, KvEmail&)>;
  const std::pair<const char*, Prepare> cases[] = {
      {"reversePath",
       [](KvMailMan&, KvEmail& email) {
         email.AddHeaderField("Return-Path", "me@site.example> SIZE=1");
       }},
      {"helo_hostname",
       [](KvMailMan& mailMan, KvEmail&) { mailMan.put_HeloHostname("pc\r\nQUIT"); }},
      {"smtp_host",
       [](KvMailMan& mailMan, KvEmail&) { mailMan.put_SmtpHost("127.0.0.1\r\nQUIT"); }},
      {"smtp_user",
       [](KvMailMan& mailMan, KvEmail&) {
         mailMan.put_SmtpUsername("u\r\nQUIT");
         mailMan.put_SmtpPassword("secret");
       }},
      {"dsnNotify", [](KvMailMan& mailMan, KvEmail&) { mailMan.put_DsnNotify("NEVER\r\nQUIT"); }},
      {"dsnEnvid", [](KvMailMan& mailMan, KvEmail&) { mailMan.put_DsnEnvid("1 SIZE=1"); }},
  };
  for (const auto& [value, prepare] : cases) {
    SCOPED_TRACE(value);
    ScriptedSmtpServer server({hello("250 DSN\\r\\n") + kQuit});
    {
      KvMailMan mailMan;
      KvEmail email;
      setUp(mailMan, server);
      fill(email);
      prepare(mailMan, email);
      EXPECT_FALSE(mailMan.SendEmail(email));
      EXPECT_THAT(mailMan.LastErrorText(), testing::HasSubstr("holds characters"));
      EXPECT_THAT(mailMan.LastErrorText(), testing::HasSubstr("<" + std::string(value) + ">"));
    }
    EXPECT_THAT(server.everything(), testing::Not(testing::HasSubstr("MAIL FROM")));
  }
}

TEST(Conversation, StopsWhenTheApplicationWants) {
  class Aborting : public KvProgress {
   public:
    void AbortCheck(bool& abort) override { abort = true; }
  } sink;
  ScriptedSmtpServer server({"S: 220 ready\\r\\n\nC: EHLO pc.example\nSILENCE"});
  KvMailMan mailMan;
  KvEmail email;
  setUp(mailMan, server);
  fill(email);
  mailMan.put_Progress(&sink);
  mailMan.put_HeartbeatMs(100);
  EXPECT_FALSE(mailMan.SendEmail(email));
  expectInOrder(mailMan.LastErrorText(),
                {"Application aborted SMTP operation prior to receiving response.",
                 "Aborted by application", "Failed to connect to SMTP server."});
  mailMan.put_Progress(nullptr);
  setAbortAll(true);
  EXPECT_FALSE(mailMan.SendEmail(email));
  setAbortAll(false);
  EXPECT_THAT(mailMan.LastErrorText(), testing::HasSubstr("Mail sending aborted by application<"));
}

TEST(MailMan, FailsWithoutReachingForTheServer) {
  KvMailMan mailMan;
  KvEmail email;
  fill(email);
  const auto lastError = [&mailMan] { return std::string(mailMan.LastErrorText()); };
  EXPECT_FALSE(mailMan.UnlockComponent(""));
  EXPECT_FALSE(mailMan.SendEmail(email));
  EXPECT_THAT(lastError(), testing::HasSubstr("locked"));
  EXPECT_FALSE(mailMan.SendQ(email));
  EXPECT_THAT(lastError(),
              testing::HasSubstr("<error>Kelvado smtpQ is not installed on this computer</error>"));
  ASSERT_TRUE(mailMan.UnlockComponent("code"));
  EXPECT_FALSE(mailMan.SendEmail(email));
  EXPECT_THAT(lastError(), testing::HasSubstr("<error>No hostname</error>"));
  EXPECT_FALSE(mailMan.SendEmail(nullptr));
  EXPECT_THAT(lastError(),
              testing::HasSubstr("<error>Email parameter is NULL in SendEmail</error>"));
  mailMan.put_SmtpHost("mail.blocked-relay.invalid");
  EXPECT_FALSE(mailMan.SendEmail(email));
  EXPECT_THAT(lastError(), testing::HasSubstr("<error>SMTP protocol failure."));
  EXPECT_FALSE(mailMan.VerifySmtpLogin());
  EXPECT_THAT(lastError(), testing::HasSubstr("<error>SMTP username is empty.</error>"));
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
