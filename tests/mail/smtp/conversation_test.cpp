// Whole conversations with a scripted server: every line to the server, and what the log says.
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

#include "platform/network/security_package.h"
#include "platform/system/files.h"
#include "tests/mail/smtp/conversation.h"
#include "tests/support/temp_dir.h"

namespace kelvado {
namespace {

Prepare login(const char* method, const char* password = "secret") {
  return [=](KvMailMan& mailMan, KvEmail&) {
    mailMan.put_SmtpUsername("user");
    mailMan.put_SmtpPassword(password);
    mailMan.put_SmtpDomain("D");
    mailMan.put_SmtpAuthMethod(method);
  };
}

// To recipients of all three kinds; `option` is switched on.
Prepare kinds(void (KvMailMan::*option)(bool) = nullptr) {
  return [option](KvMailMan& mailMan, KvEmail& email) {
    email.AddCC("", "cc@site.example");
    email.AddBcc("", "bcc@site.example");
    if (option != nullptr) (mailMan.*option)(true);
  };
}

Prepare header(const char* name, const char* value) {
  return [=](KvMailMan&, KvEmail& email) { email.AddHeaderField(name, value); };
}

bool sendBundle(KvMailMan& mailMan, KvEmail& email) {
  return mailMan.SendBundle({&email, &email});
}

bool sendTwice(KvMailMan& mailMan, KvEmail& email) {
  EXPECT_TRUE(mailMan.SendEmail(email)) << mailMan.LastErrorText();
  return mailMan.SendEmail(email);
}

bool verifyRecipients(KvMailMan& mailMan, KvEmail& email) {
  const bool all = mailMan.VerifyRecipients(email);
  EXPECT_THAT(mailMan.LastErrorText(), Not(HasSubstr("continuing to send")));
  return all;
}

bool verifyLogin(KvMailMan& mailMan, KvEmail&) {
  return mailMan.VerifySmtpLogin();
}

TEST(Conversation, GreetsAndFallsBackToHelo) {
  converse("many-line greeting and reply in one segment",
           {"S: 220-hello\r\n220-there\r\n220 ready|C: EHLO pc.example|"
            "S: 250-mail\r\n250-SIZE\r\n250 HELP|mail|quit"},
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
  converse("a second HELO with the server's own name, after a code alone",
           {"ehlo|S: 250-mail\r\n250|C: HELO pc.example|no|C: HELO 127.0.0.1|ok|mail|quit"}, true,
           "Unrecognized response from SMTP server|EHLO failed, sending HELO...|"
           "Failed to get response to Hello (HELO)|<HeloResponse>|CONNECTED to SMTP server");
}

TEST(Conversation, LogsIn) {
  converse("half of the credentials are none", {"ehlo|S: 250 AUTH LOGIN|mail|quit"}, true,
           "No SMTP password provided..|no login/password provided..|>NONE</login_method>",
           login("", ""));
  converse("LOGIN before CRAM-MD5; refused by a server that repeats the secret",
           {"ehlo|S: 250 AUTH CRAM-MD5 LOGIN|login|S: 535 no: secret"}, false,
           "<smtp_user>user</smtp_user>|<login_method>LOGIN</login_method>|"
           "Failed to get response to login password|Failed to login using LOGIN method|"
           "Failed to connect to SMTP server.",
           login(""));
  converse("PLAIN forced on a server that lists LOGIN",
           {"ehlo|S: 250 AUTH LOGIN|plain|welcome|mail|quit"}, true, ">PLAIN</login_method>",
           login("plain"));
  converse("methods that are not implemented", {"ehlo|S: 250 AUTH ANONYMOUS GSSAPI"}, false,
           "<login_method>GSSAPI</login_method>|GSSAPI login method not supported", login(""));
  converse("no method at all goes on without", {"hello|mail|quit"}, true,
           "<login_method>NONE or already authenticated</login_method>", login("none"));
  converse("after HELO only LOGIN", {"helo|login|welcome|mail|quit"}, true,
           "CONNECTED to SMTP server", login("GSSAPI"));
  converse("after HELO, forced to none", {"helo|mail|quit"}, true,
           ">NONE or already authenticated<|CONNECTED to SMTP server", login("none"));
  for (const char* name : {"CRAM-MD5", "NTLM", "MSN"}) {
    converse("after HELO, forced to a method that hides the password", {"helo"}, false,
             "LOGIN would show it the password.|Failed to login using " + std::string(name) +
                 " method|Failed to connect to SMTP server.",
             login(name));
  }
  converse("nobody is logged in", {"hello"}, false, "offered no method to log in by.", login(""),
           verifyLogin);
  converse("somebody is", {"ehlo|S: 250 AUTH LOGIN|login|welcome|quit"}, true, "", login(""),
           verifyLogin);
}

// What a server repeats of the password stays out of the log; converse looks for it there.
TEST(Conversation, KeepsThePasswordOutOfTheLog) {
  const Prepare plain = login("PLAIN");
  converse("greeting", {"S: 554 secret"}, false, "<reply>554</reply>|Failed to get initial", plain);
  converse("EHLO and HELO",
           {"ehlo|S: 550 c2VjcmV0|C: HELO pc.example|S: 550 secret|C: HELO 127.0.0.1|no"}, false,
           "<helloResponse>550<|<reply>550<|Failed to get response to 2nd-try Hello (HELO)|"
           "Failed to connect to SMTP server.<",
           plain);
  converse("STARTTLS", {"S: 220 ready|C: STARTTLS|S: 454 not with secret"}, false,
           "<reply>454</reply>|Failed to receive STARTTLS response",
           [&plain](KvMailMan& mailMan, KvEmail& email) {
             plain(mailMan, email);
             mailMan.put_StartTLS(true);
           });
  converse("before it is asked", {"ehlo|S: 250 AUTH PLAIN\r\n1 secret"}, false,
           "replied before it was asked.|<reply>(not shown", plain);
  for (const std::string reply : {"550 who is dXNlcgB1c2VyAHNlY3JldA==?", "550 who is c2VjcmV0?"}) {
    converse(reply.c_str(), {"ehlo|S: 250 AUTH PLAIN|plain|welcome|from|S: " + reply}, false,
             "<reply>550</reply>|<response>550</response>|Send failed.", plain);
  }
}

// Bytes that came before they were asked for are no reply, to whatever is asked next.
TEST(Conversation, TakesNothingForAReplyThatCameTooEarly) {
  const std::string early = "<error>The SMTP server replied before it was asked.</error>|";
  converse("to the text, with 354", {"hello|from|ok|to|ok|C: DATA|S: 354 go\r\n250 q"}, false,
           early + "250 q|Failed when sending email body");
  converse("to MAIL FROM, with EHLO's", {"ehlo|S: 250 mail\r\n250 ok"}, false,
           early + "Failed when sending MAIL FROM:<");
  converse("to anything, over a connection that was kept",
           {"hello|from|ok|to|ok|text|S: 250 queued\r\n250 again", "hello|mail|quit"}, true,
           early + "RSET failed.|Need new SMTP connection", {}, sendTwice);
  // The server may be waiting for the text: a command would become part of it.
  for (const char* reply : {"S: 354", "S: 250 ok"}) {
    const auto record =
        converse(reply, {std::string("hello|from|ok|to|ok|C: DATA|") + reply}, false,
                 "Failed when sending DATA command", kinds(&KvMailMan::put_SendIndividual));
    EXPECT_THAT(record.inTheClear, testing::EndsWith("DATA\r\n"));
  }
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
           {request + "S: HTTP/1.1 200 ok\r\nVia: x\r\n\r\n220 ready|C: EHLO pc.example|" +
            "S: 250 mail|mail|quit"},
           true, "CONNECTED to ESMTP server mail.example:25", proxied);
  converse("none: its port does not matter", {"hello|mail|quit"}, true, "",
           [](KvMailMan& mailMan, KvEmail&) { mailMan.put_HttpProxyPort(0); });
  converse("that does not", {request + "S: HTTP/1.0 407 who?\r\n"}, false,
           "The proxy server refuses the tunnel.|Failed to connect (1)", proxied);
  converse("that hangs up", {request + "HANGUP"}, false,
           "Error receiving message from proxy server|Failed to connect (1)", proxied);
}

TEST(Conversation, LogsInByNtlm) {
#ifdef __SANITIZE_ADDRESS__
  const __lsan::ScopedDisabler leaksOfTheSystemsPackage;  // it never frees its digests
#endif
  platform::SspiStatus status = platform::kSecOk;
  platform::createNtlmClient({"user", "secret", "D"}, "127.0.0.1", status);
  if (status == platform::kSecPackageNotFound) GTEST_SKIP() << "this system has no NTLM";
  const std::string listed = "ehlo|S: 250 AUTH NTLM MSN|C: AUTH NTLM|";
  const std::string first = "S: 334 ntlm supported|C: TlRMTVNTUAAB*|";  // its head, and type 1
  converse("a challenge that is none",
           {listed + first + "S: 334 AAAA|C: *|S: 501 well|login|welcome|mail|quit"}, true,
           "Finished and NOT authenticated|NTLM authentication failed|>LOGIN</alt_login_method>",
           login(""));
  converse("a denial is not followed by LOGIN",
           {listed + first +
            "S: 334 TlRMTVNTUAACAAAAAgACADgAAAAFAokiASNFZ4mrze8AAAAAAAAAAAoACgA6AAAABgEAAAAAAA9EAAI"
            "AAgBEAAAAAAA=|C: TlRMTVNTUAAD*|S: 535 no"},
           false,
           "Logon denied.  Check username, password, and domain|<response><![CDATA[535 no|"
           "NTLM authentication failed|Failed to login using NTLM method",
           login(""));
  converse("refused where it was forced", {listed + "S: 504 unknown"}, false,
           "exchangePackage: failed to get success response|NTLM authentication failed|"
           "Failed to login using NTLM method",
           login("NTLM"));
}

TEST(Conversation, OffersRecipients) {
  converse("251 is a rejection, and the others get it",
           {"hello|from|ok|to|S: 251 will forward|cc|ok|bcc|ok|data|quit"}, true,
           "Failed when sending RCPT TO:<to@site.example>|<bad_address>to@site.example<|"
           "Warning: failed to send to 1 recipient(s), continuing to send to 2 recipient(s)|"
           "<NumAccepted>2</NumAccepted>|<NumRejected>1</NumRejected>",
           kinds());
  converse("nobody accepted", {"hello|from|ok|to|no|cc|no|bcc|no|quit"}, false,
           "sending RCPT TO:|sending cc RCPT TO:|sending bcc RCPT TO:|<NumSuccess>0</NumSuccess>|"
           "<NumTotal>3</NumTotal>|<error>Send failed.</error>",
           kinds());
  converse("all or none", {"hello|from|ok|to|ok|cc|many|bcc|ok|quit"}, false,
           "One or more RCPT TO commands failed.|<error>Send failed.</error>",
           kinds(&KvMailMan::put_AllOrNone));
  converse("accepted by all, refused after DATA", {"hello|from|ok|to|ok|text|S: 554 spam|quit"},
           false,
           "Failed when sending end-of-body|<CommandSent>true</CommandSent>|"
           "<GotResponseCode>554</GotResponseCode>|<TimedOut>false</TimedOut>|"
           "<Aborted>false</Aborted>|<error>Partial send failure.</error>");
  converse(
      "too many for one transaction, and for the next; the last is refused",
      {"hello|from|ok|to|ok|cc|many|bcc|many|data|from|ok|cc|ok|bcc|many|data|from|ok|bcc|many|"
       "quit"},
      true,
      "wants another transaction for 2 recipient(s)|wants another transaction for 1|"
      "sending bcc RCPT TO:<|<NumAccepted>2</NumAccepted>|<NumRejected>1</NumRejected>",
      kinds());
  converse("verified in as many",
           {"hello|from|ok|to|ok|cc|many|bcc|ok|rset|from|ok|cc|ok|rset|quit"}, true, "", kinds(),
           verifyRecipients);
  converse("verified, and one is refused", {"hello|from|ok|to|no|cc|ok|bcc|ok|rset|quit"}, false,
           "Failed when sending RCPT TO:<to@site.example>", kinds(), verifyRecipients);
  converse(
      "one by one; a rejection, of whatever, is for one",
      {"hello|from|ok|to|no|rset|from|ok|cc|ok|text|S: 554 spam|rset|from|ok|bcc|ok|data|quit"},
      true, "<NumAccepted>1</NumAccepted>|<NumRejected>2</NumRejected>",
      kinds(&KvMailMan::put_SendIndividual));
}

// To a server that offers it, commands go out before their replies are in.
TEST(Conversation, SendsCommandsAhead) {
  const std::string hello = "ehlo|S: 250-mail\r\n250 Pipelining|";
  const Prepare two = [](KvMailMan&, KvEmail& email) { email.AddCC("", "cc@site.example"); };
  converse("replies are matched to their commands", {hello + "from|to|cc|ok|no|ok|data|quit"}, true,
           "[MAIL FROM:<|[RCPT TO:<to|[RCPT TO:<cc|[250 ok|[550 no|"
           "Failed when sending RCPT TO:<to@site.example>|[250 ok|<NumAccepted>1<",
           two);
  converse("recipients behind a sender that is refused are not bad",
           {hello + "from|to|cc|S: 451 later|S: 503 what|S: 503 what|quit"}, false,
           "Failed when sending MAIL FROM|451 later|503 what|503 what|<NumTotal>2<", two);
  converse("a second mail", {hello + "from|to|ok|ok|data|C: RSET|from|to|ok|ok|ok|data|quit"}, true,
           "<command>RSET|[MAIL FROM:<|[RCPT TO:<to|[250 ok|"
           "Using existing/open SMTP connection to send email.|Sent DATA terminator",
           {}, sendBundle);
}

// The text of the message, byte by byte as it arrives.
TEST(Conversation, TransmitsTheText) {
  const test_support::TempDir directory;
  std::string rendered;
  const auto [connections, messages, surprises, wire] = converse(
      "three mails", {"hello|from|ok|to|ok|bcc|ok|data|rset|mail|quit"}, true, "",
      [](KvMailMan& mailMan, KvEmail& email) {
        mailMan.put_SentMailLog("sent.log");
        email.put_Body("first\n.dot\r\n..two\n.");
        email.AddBcc("", "bcc@site.example");
        email.AddHeaderField("KVZ-Private", "for the program only");
      },
      [&rendered](KvMailMan& mailMan, KvEmail& email) {
        rendered = mailMan.RenderToMime(email);
        const auto sendMime = [&mailMan](const char* mime) {
          return mailMan.SendMime("Me <me@site.example>", "to@site.example", mime);
        };
        // The last but one would end the mail before it begins, and make commands of the rest.
        return mailMan.SendEmail(email) && sendMime("A: b\n\n.x") && !sendMime(".\r\nQUIT\r\n") &&
               !sendMime("");
      });
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

TEST(Conversation, KeepsAConnectionThatAnswers) {
  const auto sentBefore = [](const std::function<void(KvMailMan&)>& between) {
    return [between](KvMailMan& mailMan, KvEmail& email) {
      ASSERT_TRUE(mailMan.SendEmail(email)) << mailMan.LastErrorText();
      between(mailMan);
    };
  };
  const std::string idle = "hello|mail|C: RSET|S: 421 idle";
  const std::string limit = "hello|mail|rset|from|S: 421 Maximum allowed messages";
  converse("RSET refused", {idle, "hello|mail|quit"}, true,
           "<info>RSET failed.</info>\r\n<info>Need new SMTP connection</info>", {}, sendTwice);
  converse("RSET refused, and then the connection", {idle, "S: 554 nobody here"}, false,
           "<info>RSET failed.|Failed to connect to SMTP server.</error>\r\n</SendEmail>", {},
           sendTwice);
  converse("a time-out is that of its connection",
           {"hello|mail|C: RSET|SILENCE", "hello|from|ok|to|no|quit"}, false,
           "ReadTimeout expired|RSET failed.|<NumTotal>1</NumTotal>|Send failed.",
           sentBefore([](KvMailMan& mailMan) { mailMan.put_ReadTimeout(1); }));
  converse("another login", {"hello|mail", "hello|mail|quit"}, true, "need new SMTP connection",
           sentBefore([](KvMailMan& mailMan) { mailMan.put_SmtpUsername("other"); }));
  converse("TLS wanted from now on", {"hello|mail", "S: 220 ready|C: STARTTLS|S: 454 no"}, false,
           "No secure connection, need new SMTP connection.",
           sentBefore([](KvMailMan& mailMan) { mailMan.put_StartTLS(true); }));
  converse("the server's limit", {limit, "hello|mail|quit"}, true,
           "<info>Need new SMTP connection</info>|Sent DATA terminator", {}, sendTwice);
  converse("in words of its own", {"hello|mail|rset|from|S: 421 enough", "hello|mail|quit"}, true,
           "Failed when sending MAIL FROM|Sent DATA terminator", {}, sendTwice);
  converse("at once", {"hello|from|S: 421 Maximum allowed messages"}, false,
           "<info>Need new SMTP connection</info>|Send failed.");
  converse("in a bundle", {limit, "hello|mail|quit"}, true,
           "Sending message 1|Sending message 2|Sent DATA terminator", {}, sendBundle);
}

TEST(Conversation, SendsToLists) {
  const test_support::TempDir directory;
  ASSERT_TRUE(platform::writeWholeFile("list.txt", "to@site.example\r\n\n  cc@site.example"));
  ASSERT_TRUE(platform::writeWholeFile("empty.txt", "\n\n"));
  const auto list = [](const std::vector<std::string>& addresses) {
    return [addresses](KvMailMan& mailMan, KvEmail& email) {
      return mailMan.SendToDistributionList(email, addresses);
    };
  };
  const std::string both = "hello|from|ok|to|ok|cc|ok|data|quit";
  converse("file", {both}, true, "<info>Mail sent to 2 recipients</info>",
           header("KVX-FileDistList", "list.txt"));
  converse("empty file", {"hello|quit"}, false, "<error>The distribution list is empty</error>",
           header("KVX-FileDistList", "empty.txt"));
  converse("given", {both}, true, "", {}, list({"to@site.example", "cc@site.example"}));
  converse("given empty", {}, false, "<error>The distribution list is empty.</error>", {},
           list({}));
  converse("no text at all", {"ehlo|S: 250 SMTPUTF8|quit"}, false, "<address>J\\xFCrgen@x<", {},
           list({"J\xFCrgen@x"}));
}

// What the server's list of extensions decides.
TEST(Conversation, KeepsToWhatTheServerTakes) {
  const Prepare deliveryStatus = [](KvMailMan& mailMan, KvEmail&) {
    mailMan.put_DsnRet("HDRS");
    mailMan.put_DsnEnvid("id7");
    mailMan.put_DsnNotify("FAILURE");
  };
  converse("delivery status",
           {"ehlo|S: 250-mail\r\n250 dsn|C: MAIL FROM:<me@site.example> RET=HDRS ENVID=id7|ok|"
            "C: RCPT TO:<to@site.example> NOTIFY=FAILURE|ok|data|quit"},
           true, "", deliveryStatus);
  converse("delivery status that is not offered", {"hello|mail|quit"}, true, "", deliveryStatus);
  converse("too large", {"ehlo|S: 250 SIZE 100|quit"}, false,
           "The message is larger than the SMTP server accepts.|<server_limit>100<|Send failed.");
  converse("not too large", {"ehlo|S: 250 SIZE 1000|mail|quit"}, true, "");
  converse("of any size, and ASCII only", {"ehlo|S: 250-SIZE 0\r\n250 SMTPUTF8|mail|quit"}, true,
           "");
  const Prepare utf8Recipient = [](KvMailMan& mailMan, KvEmail& email) {
    mailMan.put_Utf8(true);
    email.put_Utf8(true);
    EXPECT_TRUE(email.AddCC("", "\xC3\xBC@site.example"));
  };
  converse("a recipient beyond ASCII",
           {"ehlo|S: 250 SMTPUTF8|C: MAIL FROM:<me@site.example> SMTPUTF8|ok|to|ok|"
            "C: RCPT TO:<\xC3\xBC@site.example>|ok|data|quit"},
           true, "", utf8Recipient);
  const std::string refused =
      "does not take such addresses (SMTPUTF8).|<address>\xC3\xBC@site.example</address>";
  converse("not offered", {"hello|quit"}, false, refused, utf8Recipient);
  converse("a sender beyond ASCII", {"hello|quit"}, false, refused,
           [](KvMailMan& mailMan, KvEmail& email) {
             mailMan.put_Utf8(true);
             email.put_Utf8(true);
             email.put_From("\xC3\xBC@site.example");
           });
}

// Values that would end a command and begin another, or add to it.
TEST(Conversation, NoValueAddsACommand) {
  const std::string refused = "holds characters|<";
  converse("Return-Path", {"hello|quit"}, false, refused + "reversePath>",
           header("Return-Path", "me@x> SIZE=1"));
  converse("sender of a text", {}, false, refused + "reversePath>", {},
           [](KvMailMan& mailMan, KvEmail&) {
             return mailMan.SendMime("me@site.example\r\nyou@site.example", "a@x.example", "A: b");
           });
  const auto setting = [&refused](const char* value, bool connects,
                                  void (KvMailMan::*put)(const char*), const char* evil) {
    const std::vector<std::string> session = {"ehlo|S: 250 DSN|quit"};
    converse(value, connects ? session : std::vector<std::string>{}, false, refused + value + ">",
             [=](KvMailMan& mailMan, KvEmail&) { (mailMan.*put)(evil); });
  };
  setting("helo_hostname", false, &KvMailMan::put_HeloHostname, "pc\r\nQUIT");
  setting("smtp_host", false, &KvMailMan::put_SmtpHost, "127.0.0.1\r\nQUIT");
  setting("smtp_user", false, &KvMailMan::put_SmtpUsername, "u\r\nQUIT");
  setting("dsnNotify", true, &KvMailMan::put_DsnNotify, "NEVER\r\nQUIT");
  setting("dsnEnvid", true, &KvMailMan::put_DsnEnvid, "1 SIZE=1");
}

TEST(Conversation, NeedsASender) {
  const auto sendWithout = [](const char* bounce) {
    return [bounce](KvMailMan& mailMan, KvEmail&) {
      KvEmail email;
      email.put_From("nobody");
      email.AddTo("", "to@site.example");
      if (bounce != nullptr) email.AddHeaderField("Return-Path", bounce);
      return mailMan.SendEmail(email);
    };
  };
  converse("none", {}, false, "The email has no sender: From holds no address with an '@'.", {},
           sendWithout(nullptr));
  converse("the null sender, by name", {"hello|C: MAIL FROM:<>|ok|to|ok|data|quit"}, true, "", {},
           sendWithout("<>"));
}

TEST(Conversation, StopsWhenTheApplicationWants) {
  class Aborting : public KvProgress {
   public:
    void AbortCheck(bool& abort) override { abort = true; }
  } sink;
  converse("by the progress object", {"ehlo|SILENCE"}, false,
           "Application aborted SMTP operation prior to receiving response.|"
           "Aborted by application|Failed to connect to SMTP server.",
           [&sink](KvMailMan& mailMan, KvEmail&) {
             mailMan.put_Progress(&sink);
             mailMan.put_HeartbeatMs(100);
           });
  setAbortAll(true);
  converse("everywhere", {}, false, "Mail sending aborted by application<");
  converse("before connecting", {}, false, "<error>Aborted by application<", {},
           [](KvMailMan& mailMan, KvEmail&) { return mailMan.VerifySmtpConnection(); });
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
