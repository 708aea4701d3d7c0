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

// Parts of scripts.
const std::string kEhlo = "S: 220 ready|C: EHLO pc.example|";
const std::string kHello = kEhlo + "S: 250 mail|";
const std::string kHelo = kEhlo + "S: 502 what|C: HELO pc.example|S: 250 ok|";
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
const std::string kLogin =
    "C: AUTH LOGIN|S: 334 VXNlcm5hbWU6|C: dXNlcg==|S: 334 UGFzc3dvcmQ6|C: c2VjcmV0|";
const std::string kWelcome = "S: 235 welcome|" + kMail + kQuit;

Prepare login(const char* user, const char* password, const char* method) {
  return [=](KvMailMan& mailMan, KvEmail&) {
    mailMan.put_SmtpUsername(user);
    mailMan.put_SmtpPassword(password);
    mailMan.put_SmtpDomain("D");
    mailMan.put_SmtpAuthMethod(method);
  };
}

TEST(Conversation, GreetsAndFallsBackToHelo) {
  converse("many-line greeting and reply in one segment",
           {"S: 220-hello\r\n220-there\r\n220 ready|C: EHLO pc.example|"
            "S: 250-mail\r\n250-SIZE\r\n250 HELP|" +
            kMail + kQuit},
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
           {kEhlo + "S: 250-mail\r\n250|C: HELO pc.example|" + kNo + "C: HELO 127.0.0.1|" + kOk +
            kMail + kQuit},
           true,
           "Unrecognized response from SMTP server|EHLO failed, sending HELO...|"
           "Failed to get response to Hello (HELO)|<HeloResponse>|CONNECTED to SMTP server");
  converse("no HELO at all",
           {kEhlo + "S: 502 what|C: HELO pc.example|" + kNo + "C: HELO 127.0.0.1|" + kNo}, false,
           "Failed to get response to Hello (HELO)|Failed to get response to 2nd-try Hello (HELO)|"
           "Failed to connect to SMTP server.</error>");
}

TEST(Conversation, LogsIn) {
  const auto method = [](const char* name) { return login("user", "secret", name); };
  converse("half of the credentials are none", {kEhlo + "S: 250 AUTH LOGIN|" + kMail + kQuit}, true,
           "No SMTP password provided..|no login/password provided..|"
           "<login_method>NONE</login_method>",
           login("user", "", ""));
  converse("LOGIN before CRAM-MD5; refused by a server that tells the secret",
           {kEhlo + "S: 250 AUTH CRAM-MD5 LOGIN|" + kLogin + "S: 535 no: secret|"}, false,
           "<smtp_user>user</smtp_user>|<login_method>LOGIN</login_method>|"
           "Failed to get response to login password|Failed to login using LOGIN method|"
           "Failed to connect to SMTP server.",
           method(""));
  converse("PLAIN forced on a server that lists LOGIN",
           {kEhlo + "S: 250 AUTH LOGIN|C: AUTH PLAIN dXNlcgB1c2VyAHNlY3JldA==|" + kWelcome}, true,
           "<login_method>PLAIN</login_method>", method("plain"));
  const std::pair<const char*, const char*> notImplemented[] = {
      {"ANONYMOUS KERBEROS_V4 GSSAPI DIGEST-MD5", "DIGEST-MD5</login_method>|DIGEST-MD5 login"},
      {"ANONYMOUS GSSAPI", "GSSAPI</login_method>|GSSAPI login"},
      {"ANONYMOUS KERBEROS_V4", "Kerberos-V4</login_method>|Kerberos v4 login"},
      {"ANONYMOUS", "anonymous</login_method>|Anonymous login"}};
  for (const auto& [listed, logged] : notImplemented) {
    converse(listed, {kEhlo + "S: 250 AUTH " + listed + "|"}, false,
             logged + std::string(" method not supported"), method(""));
  }
  converse("nobody to verify", {kHello, kHello}, false, "offered no method to log in by.",
           method(""), [](KvMailMan& mailMan, KvEmail&) {
             EXPECT_TRUE(mailMan.OpenSmtpConnection());
             return mailMan.VerifySmtpLogin();
           });
  converse("somebody to verify", {kEhlo + "S: 250 AUTH LOGIN|" + kLogin + "S: 235 ok|" + kQuit},
           true, "", method(""),
           [](KvMailMan& mailMan, KvEmail&) { return mailMan.VerifySmtpLogin(); });
  converse("no method at all goes on without", {kHello + kMail + kQuit}, true,
           "<login_method>NONE or already authenticated</login_method>", method("none"));
  converse("after HELO only LOGIN", {kHelo + kLogin + kWelcome}, true, "CONNECTED to SMTP server",
           method("GSSAPI"));
  converse("after HELO, forced to none", {kHelo + kMail + kQuit}, true,
           "<login_method>NONE or already authenticated</login_method>|CONNECTED to SMTP server",
           method("none"));
  for (const char* name : {"CRAM-MD5", "NTLM", "MSN"}) {
    converse("after HELO, forced to a method that hides the password", {kHelo}, false,
             "LOGIN would show it the password.|Failed to login using " + std::string(name) +
                 " method|Failed to connect to SMTP server.",
             method(name));
  }
}

// Whatever a server repeats of the password, from its first byte on, stays out of the log; converse
// looks for it.
TEST(Conversation, KeepsThePasswordOutOfTheLog) {
  const Prepare plain = login("user", "secret", "PLAIN");
  const Prepare startTls = [&plain](KvMailMan& mailMan, KvEmail& email) {
    plain(mailMan, email);
    mailMan.put_StartTLS(true);
  };
  const std::string greeting = "S: 220 ready|";
  const std::string sent = "C: AUTH PLAIN dXNlcgB1c2VyAHNlY3JldA==|";
  converse("greeting", {"S: 554 secret|"}, false, "<reply>554</reply>|Failed to get initial",
           plain);
  converse("EHLO, HELO",
           {kEhlo + "S: 550 c2VjcmV0|C: HELO pc.example|S: 550 secret|" +
            "C: HELO 127.0.0.1|S: 550 secret|"},
           false, "<helloResponse>550</helloResponse>|<reply>550</reply>", plain);
  converse("STARTTLS", {greeting + "C: STARTTLS|S: 454 not with secret|"}, false,
           "<reply>454</reply>|Failed to receive STARTTLS response", startTls);
  converse("before it is asked", {greeting + "C: EHLO pc.example|S: 250 AUTH PLAIN\r\n1 secret|"},
           false, "replied before it was asked.|<reply>(not shown", plain);
  converse("all that was sent, and a part of it",
           {kEhlo + "S: 250 AUTH PLAIN|" + sent + "S: 235 welcome|C: MAIL FROM:<me@site.example>|" +
            "S: 250 ok|" + kTo + "S: 550 who is dXNlcgB1c2VyAHNlY3JldA==?|" + kReset + kFrom + kTo +
            "S: 550 who is c2VjcmV0?|" + kQuit},
           false, "<reply>550</reply>", plain, [](KvMailMan& mailMan, KvEmail& email) {
             EXPECT_FALSE(mailMan.SendEmail(email));
             EXPECT_THAT(mailMan.LastErrorText(), Not(HasSubstr("dXNlcg")));
             return mailMan.SendEmail(email);
           });
}

// Bytes that came before they were asked for are no reply, to whatever is asked next.
TEST(Conversation, TakesNothingForAReplyThatCameTooEarly) {
  const std::string early = "<error>The SMTP server replied before it was asked.</error>";
  converse("to the text, with 354", {kHello + kFrom + kTo + kOk + "C: DATA|S: 354 go\r\n250 q|"},
           false, early + "|250 q|Failed when sending email body");
  converse("to MAIL FROM, with EHLO's", {kEhlo + "S: 250 mail\r\n250 ok|"}, false,
           early + "|Failed when sending MAIL FROM:<");
  converse("to anything, over a connection that was kept",
           {kHello + kMail.substr(0, kMail.size() - 1) + "\r\n250 again|", kHello + kMail + kQuit},
           true, early + "|RSET failed.|Need new SMTP connection", {},
           [](KvMailMan& mailMan, KvEmail& email) {
             return mailMan.SendEmail(email) && mailMan.SendEmail(email);
           });
  // The server may be waiting for the text: a command would become one.
  for (const char* reply : {"S: 354|", "S: 250 ok|"}) {
    const auto record =
        converse(reply, {kHello + kFrom + kTo + kOk + "C: DATA|" + reply}, false,
                 "Failed when sending DATA command", [](KvMailMan& mailMan, KvEmail& email) {
                   email.AddCC("", "cc@site.example");
                   mailMan.put_SendIndividual(true);
                 });
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
            "S: 250 mail|" + kMail + kQuit},
           true, "CONNECTED to ESMTP server mail.example:25", proxied);
  converse("none: its port does not matter", {kHello + kMail + kQuit}, true, "",
           [](KvMailMan& mailMan, KvEmail&) { mailMan.put_HttpProxyPort(0); });
  converse("that does not", {request + "S: HTTP/1.0 407 who?\r\n|"}, false,
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
  const auto method = [](const char* name) { return login("user", "secret", name); };
  const std::string listed = kEhlo + "S: 250 AUTH NTLM MSN|";
  const std::string first = "S: 334 ntlm supported|C: TlRMTVNTUAAB*|";  // its head, and type 1
  converse("a challenge that is none",
           {listed + "C: AUTH NTLM|" + first + "S: 334 AAAA|C: *|S: 501 well|" + kLogin + kWelcome},
           true,
           "Finished and NOT authenticated|NTLM authentication failed|"
           "<alt_login_method>LOGIN</alt_login_method>",
           method(""));
  const std::string challenge =
      "S: 334 TlRMTVNTUAACAAAAAgACADgAAAAFAokiASNFZ4mrze8AAAAAAAAAAAoACgA6AAAABgEAAAAAAA9EAAIAAgBE"
      "AAAAAAA=|";
  converse("a denial is not followed by LOGIN",
           {listed + "C: AUTH NTLM|" + first + challenge + "C: TlRMTVNTUAAD*|S: 535 no|"}, false,
           "Logon denied.  Check username, password, and domain|<response><![CDATA[535 no|"
           "NTLM authentication failed|Failed to login using NTLM method",
           method(""));
  converse("refused where it was forced", {listed + "C: AUTH NTLM|S: 504 unknown|"}, false,
           "exchangePackage: failed to get success response|NTLM authentication failed|"
           "Failed to login using NTLM method",
           method("NTLM"));
}

TEST(Conversation, OffersRecipients) {
  const auto threeKinds = [](void (KvMailMan::*option)(bool) = nullptr) -> Prepare {
    return [option](KvMailMan& mailMan, KvEmail& email) {
      email.AddCC("", "cc@site.example");
      email.AddBcc("", "bcc@site.example");
      if (option != nullptr) (mailMan.*option)(true);
    };
  };
  const Prepare deliveryStatus = [](KvMailMan& mailMan, KvEmail&) {
    mailMan.put_DsnRet("HDRS");
    mailMan.put_DsnEnvid("id7");
    mailMan.put_DsnNotify("FAILURE");
  };
  converse("251 is a rejection, and the others get it",
           {kHello + kFrom + kTo + "S: 251 will forward|" + kCc + kOk + kBcc + kOk + kData + kQuit},
           true,
           "Failed when sending RCPT TO:<to@site.example>|<bad_address>to@site.example<|"
           "Warning: failed to send to 1 recipient(s), continuing to send to 2 recipient(s)|"
           "<NumAccepted>2</NumAccepted>|<NumRejected>1</NumRejected>",
           threeKinds());
  converse("nobody accepted", {kHello + kFrom + kTo + kNo + kCc + kNo + kBcc + kNo + kQuit}, false,
           "sending RCPT TO:|sending cc RCPT TO:|sending bcc RCPT TO:|<NumSuccess>0</NumSuccess>|"
           "<NumTotal>3</NumTotal>|<error>Send failed.</error>",
           threeKinds());
  converse("all or none", {kHello + kFrom + kTo + kOk + kCc + kNo + kBcc + kOk + kQuit}, false,
           "One or more RCPT TO commands failed.|<error>Send failed.</error>",
           threeKinds(&KvMailMan::put_AllOrNone));
  converse("accepted by all, refused after DATA",
           {kHello + kFrom + kTo + kOk + "C: DATA|S: 354 go on|DATA|S: 554 spam|" + kQuit}, false,
           "Failed when sending end-of-body|<CommandSent>true</CommandSent>|"
           "<GotResponseCode>554</GotResponseCode>|<TimedOut>false</TimedOut>|"
           "<Aborted>false</Aborted>|<error>Partial send failure.</error>");
  converse("delivery status",
           {kEhlo + "S: 250-mail\r\n250 dsn|C: MAIL FROM:<me@site.example> RET=HDRS ENVID=id7|" +
            kOk + "C: RCPT TO:<to@site.example> NOTIFY=FAILURE|" + kOk + kData + kQuit},
           true, "", deliveryStatus);
  converse("delivery status that is not offered", {kHello + kMail + kQuit}, true, "",
           deliveryStatus);
  const std::string tooMany = "S: 452 too many recipients|";
  converse("the rest in another transaction",
           {kHello + kFrom + kTo + kOk + kCc + tooMany + kBcc + tooMany + kData + kFrom + kCc +
            kOk + kBcc + tooMany + kData + kFrom + kBcc + tooMany + kQuit},
           true,
           "wants another transaction for 2 recipient(s)|wants another transaction for 1|"
           "sending bcc RCPT TO:<|<NumAccepted>2</NumAccepted>|<NumRejected>1</NumRejected>",
           threeKinds());
  const Send verify = [](KvMailMan& mailMan, KvEmail& email) {
    return mailMan.VerifyRecipients(email);
  };
  converse("verified in as many",
           {kHello + kFrom + kTo + kOk + kCc + tooMany + kBcc + kOk + kReset + kFrom + kCc + kOk +
            kReset + kQuit},
           true, "", threeKinds(), verify);
  const auto verified =
      converse("verified: nobody is sent to",
               {kHello + kFrom + kTo + kNo + kCc + kOk + kBcc + kOk + kReset + kQuit}, false,
               "Failed when sending RCPT TO:<to@site.example>", threeKinds(),
               [&verify](KvMailMan& mailMan, KvEmail& email) {
                 const bool all = verify(mailMan, email);
                 EXPECT_THAT(mailMan.LastErrorText(), Not(HasSubstr("continuing to send")));
                 return all;
               });
  converse("one by one; a rejection, of whatever, is for one",
           {kHello + kFrom + kTo + kNo + kReset + kFrom + kCc + kOk +
            "C: DATA|S: 354 go on|DATA|S: 554 spam|" + kReset + kFrom + kBcc + kOk + kData + kQuit},
           true, "<NumAccepted>1</NumAccepted>|<NumRejected>2</NumRejected>",
           threeKinds(&KvMailMan::put_SendIndividual));
}

bool sendTwoAsBundle(KvMailMan& mailMan, KvEmail& email) {
  return mailMan.SendBundle({&email, &email});
}

// To a server that offers it, commands go out before their replies are in.
TEST(Conversation, SendsCommandsAhead) {
  const std::string hello = kEhlo + "S: 250-mail\r\n250 Pipelining|";
  const std::string from = "C: MAIL FROM:<me@site.example>|";
  const Prepare two = [](KvMailMan&, KvEmail& email) { email.AddCC("", "cc@site.example"); };
  converse("replies are told apart", {hello + from + kTo + kCc + kOk + kNo + kOk + kData + kQuit},
           true,
           "[MAIL FROM:<|[RCPT TO:<to|[RCPT TO:<cc|[250 ok|[550 no|"
           "Failed when sending RCPT TO:<to@site.example>|[250 ok|<NumAccepted>1<",
           two);
  converse("recipients behind a sender that is refused are not bad",
           {hello + from + kTo + kCc + "S: 451 later|S: 503 what|S: 503 what|" + kQuit}, false,
           "Failed when sending MAIL FROM|451 later|503 what|503 what|<NumTotal>2<", two);
  converse("a second mail",
           {hello + from + kTo + kOk + kOk + kData + "C: RSET|" + from + kTo + kOk + kOk + kOk +
            kData + kQuit},
           true,
           "<command>RSET|[MAIL FROM:<|[RCPT TO:<to|[250 ok|"
           "Using existing/open SMTP connection to send email.|Sent DATA terminator",
           {}, sendTwoAsBundle);
}

// The text of the message, byte by byte as it arrives.
TEST(Conversation, TransmitsTheText) {
  const test_support::TempDir directory;
  std::string rendered;
  const auto [connections, messages, surprises, wire] = converse(
      "three mails", {kHello + kFrom + kTo + kOk + kBcc + kOk + kData + kReset + kMail + kQuit},
      true, "",
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
  const std::string first = kHello + kMail;
  const std::string limit =
      first + kReset + "C: MAIL FROM:<me@site.example>|S: 421 Maximum " + "allowed messages|";
  const auto sentBefore = [](const std::function<void(KvMailMan&)>& between = {}) {
    return [between](KvMailMan& mailMan, KvEmail& email) {
      ASSERT_TRUE(mailMan.SendEmail(email)) << mailMan.LastErrorText();
      if (between) between(mailMan);
    };
  };
  converse("RSET refused", {first + "C: RSET|S: 421 idle|", first + kQuit}, true,
           "<info>RSET failed.</info>\r\n<info>Need new SMTP connection</info>", sentBefore());
  converse("RSET refused, and then the connection",
           {first + "C: RSET|S: 421 idle|", "S: 554 nobody here|"}, false,
           "<info>RSET failed.|Failed to connect to SMTP server.</error>\r\n</SendEmail>",
           sentBefore());
  converse("a time-out is that of its connection",
           {first + "C: RSET|SILENCE", kHello + kFrom + kTo + kNo + kQuit}, false,
           "ReadTimeout expired|RSET failed.|<NumTotal>1</NumTotal>|Send failed.",
           sentBefore([](KvMailMan& mailMan) { mailMan.put_ReadTimeout(1); }));
  converse("somebody else", {first, first + kQuit}, true, "need new SMTP connection",
           sentBefore([](KvMailMan& mailMan) { mailMan.put_SmtpUsername("other"); }));
  converse("TLS wanted from now on", {first, "S: 220 ready|C: STARTTLS|S: 454 no|"}, false,
           "No secure connection, need new SMTP connection.",
           sentBefore([](KvMailMan& mailMan) { mailMan.put_StartTLS(true); }));
  converse("the server's limit", {limit, first + kQuit}, true,
           "<info>Need new SMTP connection</info>|Sent DATA terminator", sentBefore());
  converse("in words of its own",
           {first + kReset + kFrom.substr(0, 31) + "S: 421 enough|", first + kQuit}, true,
           "Failed when sending MAIL FROM|Sent DATA terminator", sentBefore());
  converse("at once", {kHello + kFrom.substr(0, 31) + "S: 421 Maximum allowed messages|"}, false,
           "<info>Need new SMTP connection</info>|Send failed.");
  converse("in a bundle", {limit, first + kQuit}, true,
           "Sending message 1|Sending message 2|Sent DATA terminator", {}, sendTwoAsBundle);
}

TEST(Conversation, SendsToLists) {
  const test_support::TempDir directory;
  ASSERT_TRUE(platform::writeWholeFile("list.txt", "to@site.example\r\n\n  cc@site.example"));
  ASSERT_TRUE(platform::writeWholeFile("empty.txt", "\n\n"));
  const auto listFile = [](const char* name) {
    return [name](KvMailMan&, KvEmail& email) { email.AddHeaderField("KVX-FileDistList", name); };
  };
  const auto list = [](const std::vector<std::string>& addresses) {
    return [addresses](KvMailMan& mailMan, KvEmail& email) {
      return mailMan.SendToDistributionList(email, addresses);
    };
  };
  const std::string both = kHello + kFrom + kTo + kOk + kCc + kOk + kData + kQuit;
  converse("file", {both}, true, "<info>Mail sent to 2 recipients</info>", listFile("list.txt"));
  converse("empty file", {kHello + kQuit}, false, "<error>The distribution list is empty</error>",
           listFile("empty.txt"));
  converse("given", {both}, true, "", {}, list({"to@site.example", "cc@site.example"}));
  converse("given empty", {}, false, "<error>The distribution list is empty.</error>", {},
           list({}));
}

// What a server's list of extensions decides before anything of a mail is sent.
TEST(Conversation, KeepsToWhatTheServerTakes) {
  const auto offering = [](const char* extension) {
    return kEhlo + "S: 250-mail\r\n250 " + extension + "|";
  };
  const Prepare sendsHundred = [](KvMailMan&, KvEmail& email) {
    email.put_Body(std::string(100, 'x').c_str());
  };
  converse("too large", {offering("SIZE 100") + kQuit}, false,
           "The message is larger than the SMTP server accepts.|<server_limit>100<|Send failed.",
           sendsHundred);
  converse("not too large", {offering("SIZE 1000") + kMail + kQuit}, true, "", sendsHundred);
  converse("any size", {offering("SIZE 0") + kMail + kQuit}, true, "", sendsHundred);

  const Prepare beyondAscii = [](KvMailMan& mailMan, KvEmail& email) {
    mailMan.put_Utf8(true);
    email.put_Utf8(true);
    EXPECT_TRUE(email.AddCC("", "g\xC3\xBCnter@site.example"));
  };
  const std::string utf8Cc = "C: RCPT TO:<g\xC3\xBCnter@site.example>|" + kOk;
  converse("an address beyond ASCII",
           {offering("SMTPUTF8") + "C: MAIL FROM:<me@site.example> SMTPUTF8|" + kOk + kTo + kOk +
            utf8Cc + kData + kQuit},
           true, "", beyondAscii);
  converse("ASCII only", {offering("SMTPUTF8") + kMail + kQuit}, true, "");
  converse("not offered", {kHello + kQuit}, false,
           "does not take such addresses (SMTPUTF8).|<address>g\xC3\xBCnter@site.example</address>",
           beyondAscii);
  converse("a sender beyond ASCII", {kHello + kQuit}, false, "<address>\xC3\xBC@site.example<",
           [](KvMailMan& mailMan, KvEmail& email) {
             mailMan.put_Utf8(true);
             email.put_Utf8(true);
             email.put_From("\xC3\xBC@site.example");
           });
  converse("no text at all", {offering("SMTPUTF8") + kQuit}, false, "<address>J\\xFCrgen@x<", {},
           [](KvMailMan& mailMan, KvEmail& email) {
             return mailMan.SendToDistributionList(email, {"J\xFCrgen@x"});
           });
}

// Values that would end a command and begin another, or add to it.
TEST(Conversation, NoValueAddsACommand) {
  const auto refused = [](const char* value, bool connects, const Prepare& prepare) {
    const std::vector<std::string> session = {kEhlo + "S: 250 DSN|" + kQuit};
    converse(value, connects ? session : std::vector<std::string>{}, false,
             "holds characters|<" + std::string(value) + ">", prepare);
  };
  refused("reversePath", true,
          [](KvMailMan&, KvEmail& email) { email.AddHeaderField("Return-Path", "me@x> SIZE=1"); });
  const auto setting = [&refused](const char* value, bool connects,
                                  void (KvMailMan::*put)(const char*), const char* evil) {
    refused(value, connects, [=](KvMailMan& mailMan, KvEmail&) { (mailMan.*put)(evil); });
  };
  setting("helo_hostname", false, &KvMailMan::put_HeloHostname, "pc\r\nQUIT");
  setting("smtp_host", false, &KvMailMan::put_SmtpHost, "127.0.0.1\r\nQUIT");
  setting("smtp_user", false, &KvMailMan::put_SmtpUsername, "u\r\nQUIT");
  setting("dsnNotify", true, &KvMailMan::put_DsnNotify, "NEVER\r\nQUIT");
  setting("dsnEnvid", true, &KvMailMan::put_DsnEnvid, "1 SIZE=1");
  converse("sender of a text", {}, false, "holds characters|<reversePath>", {},
           [](KvMailMan& mailMan, KvEmail&) {
             return mailMan.SendMime("me@site.example\r\nyou@site.example", "to@site.example",
                                     "A: b");
           });
}

TEST(Conversation, NeedsASender) {
  const auto sendTo = [](KvMailMan& mailMan, KvEmail&, const char* bounce) {
    KvEmail email;
    email.put_From("nobody");
    email.AddTo("", "to@site.example");
    if (bounce != nullptr) email.AddHeaderField("Return-Path", bounce);
    return mailMan.SendEmail(email);
  };
  converse("none", {}, false, "The email has no sender: From holds no address with an '@'.", {},
           [&](KvMailMan& mailMan, KvEmail& email) { return sendTo(mailMan, email, nullptr); });
  converse("the null sender, by name",
           {kHello + "C: MAIL FROM:<>|" + kOk + kTo + kOk + kData + kQuit}, true, "", {},
           [&](KvMailMan& mailMan, KvEmail& email) { return sendTo(mailMan, email, "<>"); });
}

TEST(Conversation, StopsWhenTheApplicationWants) {
  class Aborting : public KvProgress {
   public:
    void AbortCheck(bool& abort) override { abort = true; }
  } sink;
  converse("by the progress object", {kEhlo + "SILENCE"}, false,
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
