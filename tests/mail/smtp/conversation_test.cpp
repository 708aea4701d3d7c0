// Whole conversations with a scripted server: every line to the server, and what the log says.
#include <functional>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

#include "mail/mime/kv_email.h"
#include "mail/smtp/kv_mail_man.h"
#include "platform/files.h"
#include "platform/security_package.h"
#include "tests/support/scripted_smtp_server.h"
#include "tests/support/temp_dir.h"

namespace kelvado {
namespace {

using test_support::ScriptedSmtpServer;
using testing::HasSubstr;
using testing::Not;

// Parts of scripts.
const std::string kEhlo = "S: 220 ready|C: EHLO pc.example|";
const std::string kHello = kEhlo + "S: 250 mail|";
const std::string kFrom = "C: MAIL FROM:<me@site.example>|S: 250 ok|";
const std::string kTo = "C: RCPT TO:<to@site.example>|";
const std::string kCc = "C: RCPT TO:<cc@site.example>|";
const std::string kBcc = "C: RCPT TO:<bcc@site.example>|";
const std::string kOk = "S: 250 ok|";
const std::string kNo = "S: 550 no|";
const std::string kData = "C: DATA|S: 354 go on|DATA|S: 250 queued|";
const std::string kQuit = "C: QUIT|S: 221 bye";
const std::string kReset = "C: RSET|S: 250 ok|";
const std::string kMail = kFrom + kTo + kOk + kData;

using Prepare = std::function<void(KvMailMan&, KvEmail&)>;

void setUp(KvMailMan& mailMan, KvEmail& email, const ScriptedSmtpServer& server) {
  mailMan.UnlockComponent("code");
  mailMan.put_SmtpHost("127.0.0.1");
  mailMan.put_SmtpPort(server.port());
  mailMan.put_HeloHostname("pc.example");
  mailMan.put_ReadTimeout(5);
  email.put_From("me@site.example");
  email.AddTo("", "to@site.example");
  email.put_Subject("subject");
  email.put_Body("text");
}

void expectInOrder(const std::string& log, const std::string& texts) {
  std::istringstream list(texts);
  std::size_t from = 0;
  for (std::string text; std::getline(list, text, '|');) {
    const std::size_t at = log.find(text, from);
    ASSERT_NE(at, std::string::npos) << "\"" << text << "\" is missing in\n" << log;
    from = at + text.size();
  }
}

// Sends one mail; `logged`: texts of the log in their order, with '|' between them.
void converse(const char* what, const std::string& script, bool sent, const std::string& logged,
              const Prepare& prepare = {}) {
  SCOPED_TRACE(what);
  ScriptedSmtpServer server({script});
  std::string log;
  {
    KvMailMan mailMan;
    KvEmail email;
    setUp(mailMan, email, server);
    if (prepare) prepare(mailMan, email);
    EXPECT_EQ(mailMan.SendEmail(email), sent);
    log = mailMan.LastErrorText();
  }
  expectInOrder(log, logged);
  EXPECT_THAT(log, Not(HasSubstr("secret")));
  EXPECT_THAT(log, Not(HasSubstr("c2VjcmV0")));
  EXPECT_THAT(server.record().surprises, testing::IsEmpty());
}

TEST(Conversation, GreetsAndFallsBackToHelo) {
  converse("many-line greeting and reply in one segment",
           "S: 220-hello\\r\\n220-there\\r\\n220 ready|C: EHLO pc.example|"
           "S: 250-mail\\r\\n250-SIZE\\r\\n250 HELP|" +
               kMail + kQuit,
           true,
           "<SendEmail>|<DllDate>|<info>No connection, need new SMTP connection.</info>|"
           "<SMTP_Connect>|No SMTP login provided.<|No SMTP password provided.<|"
           "Skipping SMTP authentication because no login/password provided.<|"
           "Connecting to SMTP server 127.0.0.1:|<smtp_host>127.0.0.1</smtp_host>|"
           "<smtp_user>NULL</smtp_user>|<InitialResponse>|sendingHello|<helloResponse>|"
           "<login_method>NONE</login_method>|CONNECTED to ESMTP server 127.0.0.1:|"
           "</SMTP_Connect>|<subject>subject</subject>|<reversePath>me@site.example</reversePath>|"
           "<email_size>|Sent DATA terminator|<NumAccepted>1</NumAccepted>|"
           "<NumRejected>0</NumRejected>");
  const std::string helo = "S: 502 what|C: HELO pc.example|";
  converse("HELO", kEhlo + helo + kOk + kMail + kQuit, true,
           "EHLO failed, sending HELO...|<HeloResponse>|CONNECTED to SMTP server");
  converse("a second HELO with the server's own name, after a code alone",
           kEhlo + "S: 250|C: HELO pc.example|" + kNo + "C: HELO 127.0.0.1|" + kOk + kMail + kQuit,
           true,
           "Unrecognized response from SMTP server|Failed to get response to Hello (HELO)|"
           "<HeloResponse>");
  converse("no HELO at all", kEhlo + helo + kNo + "C: HELO 127.0.0.1|" + kNo, false,
           "Failed to get response to Hello (HELO)|Failed to get response to 2nd-try Hello (HELO)|"
           "Failed to connect to SMTP server.</error>");
  converse("a greeting of three characters", "S: 220|", false,
           "<error>Unrecognized response from SMTP server</error>|"
           "<error>Failed to get initial SMTP response..</error>|"
           "<error>The SMTP server may be denying access for this domain.</error>");
  converse("half of the credentials are none", kEhlo + "S: 250 AUTH LOGIN|" + kMail + kQuit, true,
           "No SMTP password provided..|no login/password provided..|"
           "<login_method>NONE</login_method>",
           [](KvMailMan& mailMan, KvEmail&) {
             mailMan.put_SmtpUsername("user");
             mailMan.put_SmtpPassword("");
           });
}

TEST(Conversation, LogsIn) {
  const auto user = [](const char* name, const char* password, const char* method) {
    return [=](KvMailMan& mailMan, KvEmail&) {
      mailMan.put_SmtpUsername(name);
      mailMan.put_SmtpPassword(password);
      mailMan.put_SmtpAuthMethod(method);
    };
  };
  const auto method = [&user](const char* name) { return user("user", "secret", name); };
  const std::string login =
      "C: AUTH LOGIN|S: 334 VXNlcm5hbWU6|C: dXNlcg==|S: 334 UGFzc3dvcmQ6|C: c2VjcmV0|";
  const std::string plain = "C: AUTH PLAIN dXNlcgB1c2VyAHNlY3JldA==|";
  const std::string rest = "S: 235 welcome|" + kMail + kQuit;
  converse("LOGIN before CRAM-MD5", kEhlo + "S: 250 AUTH CRAM-MD5 LOGIN|" + login + rest, true,
           "<smtp_user>user</smtp_user>|<login_method>LOGIN</login_method>", method(""));
  converse("LOGIN refused", kEhlo + "S: 250 AUTH LOGIN|" + login + "S: 535 no: secret|", false,
           "Failed to get response to login password|Failed to login using LOGIN method|"
           "Failed to connect to SMTP server.",
           method(""));
  converse("PLAIN", kEhlo + "S: 250 AUTH PLAIN|" + plain + rest, true,
           "This SMTP server did not list authentication methods.|"
           "<login_method>PLAIN</login_method>",
           method(""));
  converse("PLAIN forced on a server that lists LOGIN", kEhlo + "S: 250 AUTH LOGIN|" + plain + rest,
           true, "<login_method>PLAIN</login_method>", method("plain"));
  converse("CRAM-MD5, the example of RFC 2195",
           kEhlo +
               "S: 250 AUTH CRAM-MD5 PLAIN|C: AUTH CRAM-MD5|"
               "S: 334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+|"
               "C: dGltIGI5MTNhNjAyYzdlZGE3YTQ5NWI0ZTZlNzMzNGQzODkw|" +
               rest,
           true, "<login_method>CRAM_MD5</login_method>", user("tim", "tanstaaftanstaaf", ""));
  converse("methods that are not implemented", kEhlo + "S: 250 AUTH ANONYMOUS GSSAPI|", false,
           "<login_method>GSSAPI</login_method>|GSSAPI login method not supported", method(""));
  converse("no method at all goes on without", kHello + kMail + kQuit, true,
           "<login_method>NONE or already authenticated</login_method>", method("none"));
  converse("after HELO only LOGIN", kEhlo + "S: 502 what|C: HELO pc.example|" + kOk + login + rest,
           true, "CONNECTED to SMTP server", method("CRAM-MD5"));
}

TEST(Conversation, GoesThroughAProxy) {
  const Prepare proxied = [](KvMailMan& mailMan, KvEmail&) {
    mailMan.put_HttpProxyHostname("127.0.0.1");
    mailMan.put_HttpProxyPort(mailMan.get_SmtpPort());
    mailMan.put_SmtpHost("mail.example");
    mailMan.put_SmtpPort(25);
  };
  const std::string request = "C: CONNECT mail.example:25 HTTP/1.0|C: User-Agent: Kelvado|C: |";
  converse("that opens the tunnel, greeting in the same segment",
           request +
               "RAW: HTTP/1.1 200 ok\\r\\nVia: x\\r\\n\\r\\n220 ready\\r\\n|C: EHLO pc.example|S: "
               "250 mail|" +
               kMail + kQuit,
           true, "CONNECTED to ESMTP server mail.example:25", proxied);
  converse("that does not", request + "RAW: HTTP/1.0 407 who?\\r\\n\\r\\n|", false,
           "The proxy server refuses the tunnel.|Failed to connect (1)", proxied);
  converse("that hangs up", request + "HANGUP", false,
           "Error receiving message from proxy server|Failed to connect (1)", proxied);
}

TEST(Conversation, LogsInByNtlm) {
#ifdef __SANITIZE_ADDRESS__
  const __lsan::ScopedDisabler leaksOfTheSystemsPackage;  // it never frees its digests
#endif
  platform::SspiStatus status = platform::kSecOk;
  platform::createNtlmClient({"user", "secret", "D"}, "127.0.0.1", status);
  if (status == platform::kSecPackageNotFound) GTEST_SKIP() << "this system has no NTLM";
  const auto method = [](const char* name) {
    return [=](KvMailMan& mailMan, KvEmail&) {
      mailMan.put_SmtpUsername("user");
      mailMan.put_SmtpPassword("secret");
      mailMan.put_SmtpDomain("D");
      mailMan.put_SmtpAuthMethod(name);
    };
  };
  const std::string listed = kEhlo + "S: 250 AUTH NTLM MSN|";
  const std::string first = "S: 334 ntlm supported|C: TlRMTVNTUAAB*|";  // its head, and type 1
  const std::string both = first +
                           "S: 334 "
                           "TlRMTVNTUAACAAAAAgACADgAAAAFAokiASNFZ4mrze8AAAAAAAAAAAoACgA6AAAABgEAAAA"
                           "AAA9EAAIAAgBEAAAAAAA=|"
                           "C: TlRMTVNTUAAD*|";
  const std::string login =
      "C: AUTH LOGIN|S: 334 VXNlcm5hbWU6|C: dXNlcg==|S: 334 UGFzc3dvcmQ6|C: c2VjcmV0|";
  const std::string rest = "S: 235 welcome|" + kMail + kQuit;
  converse("NTLM", listed + "C: AUTH NTLM|" + both + rest, true,
           "<login_method>NTLM</login_method>|CONNECTED to ESMTP server", method(""));
  converse("MSN denied is not followed by LOGIN", listed + "C: AUTH MSN|" + both + "S: 535 no|",
           false,
           "<login_method>MSN</login_method>|Logon denied.  Check username, password, and domain|"
           "<response><![CDATA[535 no|MSN authentication failed|Failed to login using MSN method",
           method("msn"));
  converse("a challenge that is none",
           listed + "C: AUTH NTLM|" + first + "S: 334 AAAA|C: *|S: 501 well|" + login + rest, true,
           "Finished and NOT authenticated|NTLM authentication failed|"
           "<alt_login_method>LOGIN</alt_login_method>",
           method(""));
  const std::string refused = listed + "C: AUTH NTLM|S: 504 unknown|";
  converse("refused as a method", refused + login + rest, true,
           "exchangePackage: failed to get success response|NTLM authentication failed|"
           "<alt_login_method>LOGIN</alt_login_method>",
           method(""));
  converse("refused where it was forced", refused, false,
           "NTLM authentication failed|Failed to login using NTLM method", method("NTLM"));
}

TEST(Conversation, OffersRecipients) {
  const Prepare threeKinds = [](KvMailMan&, KvEmail& email) {
    email.AddCC("", "cc@site.example");
    email.AddBcc("", "bcc@site.example");
  };
  const auto threeAnd = [&threeKinds](void (KvMailMan::*put)(bool)) {
    return [&threeKinds, put](KvMailMan& mailMan, KvEmail& email) {
      threeKinds(mailMan, email);
      (mailMan.*put)(true);
    };
  };
  const Prepare deliveryStatus = [](KvMailMan& mailMan, KvEmail&) {
    mailMan.put_DsnRet("HDRS");
    mailMan.put_DsnEnvid("id7");
    mailMan.put_DsnNotify("FAILURE");
  };
  converse("251 is a rejection, and the others get it",
           kHello + kFrom + kTo + "S: 251 will forward|" + kCc + kOk + kBcc + kOk + kData + kQuit,
           true,
           "Failed when sending RCPT TO:<to@site.example>|<bad_address>to@site.example<|"
           "Warning: failed to send to 1 recipient(s), continuing to send to 2 recipient(s)|"
           "<NumAccepted>2</NumAccepted>|<NumRejected>1</NumRejected>",
           threeKinds);
  converse("nobody accepted", kHello + kFrom + kTo + kNo + kCc + kNo + kBcc + kNo + kQuit, false,
           "sending RCPT TO:|sending cc RCPT TO:|sending bcc RCPT TO:|<NumSuccess>0</NumSuccess>|"
           "<NumTotal>3</NumTotal>|<error>Send failed.</error>",
           threeKinds);
  converse("all or none", kHello + kFrom + kTo + kOk + kCc + kNo + kBcc + kOk + kQuit, false,
           "One or more RCPT TO commands failed.|<error>Send failed.</error>",
           threeAnd(&KvMailMan::put_AllOrNone));
  converse("accepted by all, refused after DATA",
           kHello + kFrom + kTo + kOk + "C: DATA|S: 354 go on|DATA|S: 554 spam|" + kQuit, false,
           "Failed when sending end-of-body|<CommandSent>true</CommandSent>|"
           "<GotResponseCode>554</GotResponseCode>|<TimedOut>false</TimedOut>|"
           "<Aborted>false</Aborted>|<error>Partial send failure.</error>");
  converse("delivery status",
           kEhlo + "S: 250-mail\\r\\n250 dsn|C: MAIL FROM:<me@site.example> RET=HDRS ENVID=id7|" +
               kOk + "C: RCPT TO:<to@site.example> NOTIFY=FAILURE|" + kOk + kData + kQuit,
           true, "", deliveryStatus);
  converse("delivery status that is not offered", kHello + kMail + kQuit, true, "", deliveryStatus);
  converse("one by one; a rejection needs a reset",
           kHello + kFrom + kTo + kNo + kReset + kFrom + kCc + kOk + kData + kReset + kFrom + kBcc +
               kOk + kData + kQuit,
           true, "<NumAccepted>2</NumAccepted>|<NumRejected>1</NumRejected>",
           threeAnd(&KvMailMan::put_SendIndividual));
}

// To a server that offers it, commands go out before their replies are in.
TEST(Conversation, SendsCommandsAhead) {
  const std::string hello = kEhlo + "S: 250-mail\\r\\n250 Pipelining|";
  const std::string from = "C: MAIL FROM:<me@site.example>|";
  const Prepare two = [](KvMailMan&, KvEmail& email) { email.AddCC("", "cc@site.example"); };
  converse("replies are told apart", hello + from + kTo + kCc + kOk + kNo + kOk + kData + kQuit,
           true,
           "[MAIL FROM:<|[RCPT TO:<to|[RCPT TO:<cc|[250 ok|[550 no|"
           "Failed when sending RCPT TO:<to@site.example>|[250 ok|<NumAccepted>1<",
           two);
  converse("recipients behind a sender that is refused are not bad",
           hello + from + kTo + kCc + "S: 451 later|S: 503 what|S: 503 what|" + kQuit, false,
           "Failed when sending MAIL FROM|451 later|503 what|503 what|<NumTotal>2<", two);

  ScriptedSmtpServer server({hello + from + kTo + kOk + kOk + kData + "C: RSET|" + from + kTo +
                             kOk + kOk + kOk + kData + kQuit});
  KvMailMan mailMan;
  KvEmail email;
  setUp(mailMan, email, server);
  EXPECT_TRUE(mailMan.SendBundle({&email, &email}));
  expectInOrder(mailMan.LastErrorText(),
                "<command>RSET|[MAIL FROM:<|[RCPT TO:<to|[250 ok|"
                "Using existing/open SMTP connection to send email.|Sent DATA terminator");
}

// The text of the message, byte by byte as it arrives.
TEST(Conversation, TransmitsTheText) {
  ScriptedSmtpServer server(
      {kHello + kFrom + kTo + kOk + kBcc + kOk + kData + kReset + kMail + kQuit});
  const test_support::TempDir directory;
  std::string rendered;
  {
    KvMailMan mailMan;
    KvEmail email;
    setUp(mailMan, email, server);
    mailMan.put_SentMailLog("sent.log");
    email.put_Body("first\n.dot\r\n..two\n.");
    email.AddBcc("", "bcc@site.example");
    rendered = mailMan.RenderToMime(email);
    EXPECT_TRUE(mailMan.SendEmail(email)) << mailMan.LastErrorText();
    EXPECT_TRUE(mailMan.SendMime("Me <me@site.example>", "to@site.example", "A: b\n\n.x"));
    // Would end the mail before it begins, and make commands of the rest.
    EXPECT_FALSE(mailMan.SendMime("me@site.example", "to@site.example", ".\r\nQUIT\r\n"));
    EXPECT_FALSE(mailMan.SendMime("me@site.example", "to@site.example", ""));
  }
  const auto [messages, surprises, wire] = server.record();
  EXPECT_THAT(surprises, testing::IsEmpty());
  ASSERT_EQ(messages.size(), 2U);
  EXPECT_THAT(messages[0], testing::EndsWith("\r\n\r\nfirst\r\n..dot\r\n...two\r\n.."));
  EXPECT_THAT(messages[0], Not(testing::AnyOf(HasSubstr("bcc@site"), HasSubstr("KVX-"))));
  EXPECT_THAT(rendered, testing::EndsWith("\r\n\r\nfirst\r\n.dot\r\n..two\r\n."));
  EXPECT_EQ(messages[1], "A: b\r\n\r\n..x");
  std::string log;
  ASSERT_TRUE(platform::readWholeFile("sent.log", log));
  const std::string begin = "--BEGIN SENT KELVADO EMAIL--\n";
  const std::string end = "\n--END SENT KELVADO EMAIL--\n";
  EXPECT_EQ(log, begin + messages[0] + end + begin + messages[1] + end);
}

TEST(Conversation, KeepsAConnectionThatAnswers) {
  const std::string first = kHello + kMail;
  const auto sendTwice = [](const char* what, const std::vector<std::string>& scripts, bool sent,
                            const char* logged,
                            const std::function<void(KvMailMan&)>& between = {}) {
    SCOPED_TRACE(what);
    ScriptedSmtpServer server(scripts);
    {
      KvMailMan mailMan;
      KvEmail email;
      setUp(mailMan, email, server);
      ASSERT_TRUE(mailMan.SendEmail(email)) << mailMan.LastErrorText();
      if (between) between(mailMan);
      EXPECT_EQ(mailMan.SendEmail(email), sent);
      EXPECT_THAT(mailMan.LastErrorText(), HasSubstr(logged));
    }
    EXPECT_THAT(server.record().surprises, testing::IsEmpty());
    EXPECT_EQ(server.connections(), static_cast<int>(scripts.size()));
  };
  sendTwice("kept", {first + kReset + kMail + kQuit}, true,
            "Using existing/open SMTP connection to send email.");
  sendTwice("RSET refused", {first + "C: RSET|S: 421 idle|", first + kQuit}, true,
            "<info>RSET failed.</info>\r\n<info>Need new SMTP connection</info>");
  sendTwice("gone meanwhile", {first + "HANGUP", first + kQuit}, true, "RSET failed.");
  sendTwice("other settings", {first, first + kQuit}, true, "need new SMTP connection",
            [](KvMailMan& mailMan) { mailMan.put_ReadTimeout(6); });
  sendTwice("TLS wanted from now on", {first, "S: 220 ready|C: STARTTLS|S: 454 no|"}, false,
            "No secure connection, need new SMTP connection.",
            [](KvMailMan& mailMan) { mailMan.put_StartTLS(true); });
  sendTwice("the server's limit",
            {first + kReset + "C: MAIL FROM:<me@site.example>|S: 421 Maximum allowed messages|"},
            false, "<info>Need new SMTP connection</info>");
}

// In a bundle, the server's limit on messages is no reason to lose one.
TEST(Conversation, ABundleGoesOnOverANewConnection) {
  ScriptedSmtpServer server({kHello + kMail + kReset + "C: MAIL FROM:<me@site.example>|" +
                                 "S: 421 maximum allowed messages|",
                             kHello + kMail + kQuit});
  {
    KvMailMan mailMan;
    KvEmail email;
    setUp(mailMan, email, server);
    EXPECT_TRUE(mailMan.SendBundle({&email, &email}));
    expectInOrder(mailMan.LastErrorText(), "Sending message 1|Sending message 2");
  }
  EXPECT_EQ(server.record().messages.size(), 2U);
}

TEST(Conversation, SendsToLists) {
  const test_support::TempDir directory;
  ASSERT_TRUE(platform::writeWholeFile("list.txt", "to@site.example\r\n\n  cc@site.example"));
  ASSERT_TRUE(platform::writeWholeFile("empty.txt", "\n\n"));
  const auto listFile = [](const char* name) {
    return [name](KvMailMan&, KvEmail& email) { email.AddHeaderField("KVX-FileDistList", name); };
  };
  const std::string both = kHello + kFrom + kTo + kOk + kCc + kOk + kData + kQuit;
  converse("file", both, true, "<info>Mail sent to 2 recipients</info>", listFile("list.txt"));
  converse("empty file", kHello + kQuit, false, "<error>The distribution list is empty</error>",
           listFile("empty.txt"));
  ScriptedSmtpServer server({both});
  KvMailMan mailMan;
  KvEmail email;
  setUp(mailMan, email, server);
  EXPECT_TRUE(mailMan.SendToDistributionList(email, {"to@site.example", "cc@site.example"}));
  EXPECT_FALSE(mailMan.SendToDistributionList(email, {}));
  EXPECT_THAT(mailMan.LastErrorText(), HasSubstr("<error>The distribution list is empty.</error>"));
}

// Values that would end a command and begin another, or add to it.
TEST(Conversation, NoValueAddsACommand) {
  const std::pair<const char*, Prepare> cases[] = {
      {"reversePath",
       [](KvMailMan&, KvEmail& email) { email.AddHeaderField("Return-Path", "me@x> SIZE=1"); }},
      {"helo_hostname", [](KvMailMan& man, KvEmail&) { man.put_HeloHostname("pc\r\nQUIT"); }},
      {"smtp_host", [](KvMailMan& man, KvEmail&) { man.put_SmtpHost("127.0.0.1\r\nQUIT"); }},
      {"smtp_user", [](KvMailMan& man, KvEmail&) { man.put_SmtpUsername("u\r\nQUIT"); }},
      {"dsnNotify", [](KvMailMan& man, KvEmail&) { man.put_DsnNotify("NEVER\r\nQUIT"); }},
      {"dsnEnvid", [](KvMailMan& man, KvEmail&) { man.put_DsnEnvid("1 SIZE=1"); }},
  };
  for (const auto& [value, prepare] : cases) {
    SCOPED_TRACE(value);
    ScriptedSmtpServer server({kEhlo + "S: 250 DSN|" + kQuit});
    {
      KvMailMan mailMan;
      KvEmail email;
      setUp(mailMan, email, server);
      prepare(mailMan, email);
      EXPECT_FALSE(mailMan.SendEmail(email));
      expectInOrder(mailMan.LastErrorText(), "holds characters|<" + std::string(value) + ">");
    }
    EXPECT_THAT(server.record().wire, Not(HasSubstr("MAIL FROM")));
  }
}

TEST(Conversation, StopsWhenTheApplicationWants) {
  class Aborting : public KvProgress {
   public:
    void AbortCheck(bool& abort) override { abort = true; }
  } sink;
  ScriptedSmtpServer server({kEhlo + "SILENCE"});
  KvMailMan mailMan;
  KvEmail email;
  setUp(mailMan, email, server);
  mailMan.put_Progress(&sink);
  mailMan.put_HeartbeatMs(100);
  EXPECT_FALSE(mailMan.SendEmail(email));
  expectInOrder(mailMan.LastErrorText(),
                "Application aborted SMTP operation prior to receiving response.|"
                "Aborted by application|Failed to connect to SMTP server.");
  mailMan.put_Progress(nullptr);
  setAbortAll(true);
  EXPECT_FALSE(mailMan.SendEmail(email));
  setAbortAll(false);
  EXPECT_THAT(mailMan.LastErrorText(), HasSubstr("Mail sending aborted by application<"));
}

TEST(MailMan, FailsWithoutReachingForTheServer) {
  KvMailMan mailMan;
  KvEmail email;
  const auto lastError = [&mailMan] { return std::string(mailMan.LastErrorText()); };
  EXPECT_FALSE(mailMan.UnlockComponent(""));
  EXPECT_FALSE(mailMan.SendEmail(email));
  EXPECT_THAT(lastError(), HasSubstr("locked"));
  EXPECT_FALSE(mailMan.SendQ(email));
  EXPECT_THAT(lastError(),
              HasSubstr("<error>Kelvado smtpQ is not installed on this computer</error>"));
  ASSERT_TRUE(mailMan.UnlockComponent("code"));
  EXPECT_FALSE(mailMan.SendEmail(email));
  EXPECT_THAT(lastError(), HasSubstr("<error>No hostname</error>"));
  EXPECT_FALSE(mailMan.SendEmail(nullptr));
  EXPECT_THAT(lastError(), HasSubstr("<error>Email parameter is NULL in SendEmail</error>"));
  mailMan.put_SmtpHost("mail.blocked-relay.invalid");
  EXPECT_FALSE(mailMan.SendEmail(email));
  EXPECT_THAT(lastError(), HasSubstr("<error>SMTP protocol failure."));
  EXPECT_FALSE(mailMan.VerifySmtpLogin());
  EXPECT_THAT(lastError(), HasSubstr("<error>SMTP username is empty.</error>"));
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
