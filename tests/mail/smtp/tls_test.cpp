// The session over TLS: what is sent in the clear, whose certificate is taken, and what a server
// that tampers with the start of TLS achieves.
#include <cstdlib>
#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mail/mime/kv_email.h"
#include "mail/smtp/kv_mail_man.h"
#include "platform/files.h"
#include "tests/support/scripted_smtp_server.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tls_server.h"

namespace kelvado {
namespace {

using test_support::ScriptedSmtpServer;

const std::string kStart = "S: 220 ready\\r\\n\nC: STARTTLS\nS: 220 go on\\r\\n\n";
const std::string kSession =
    "C: EHLO pc.example\nS: 250 AUTH PLAIN\\r\\n\nC: AUTH PLAIN *\nS: 235 ok\\r\\n\n"
    "C: MAIL FROM:<me@site.example>\nS: 250 ok\\r\\n\nC: RCPT TO:<to@site.example>\n"
    "S: 250 ok\\r\\n\nC: DATA\nS: 354 go on\\r\\n\nDATA\nS: 250 queued\\r\\n\nC: QUIT\n"
    "S: 221 bye\\r\\n\n";

// The process trusts the authority of the test's certificates.
class TlsSession : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    directory_ = new test_support::TempDir;
    platform::writeWholeFile(directory_->path() + "/authority.pem", test_support::authorityPem());
    setenv("SSL_CERT_FILE", (directory_->path() + "/authority.pem").c_str(), 1);
  }
  static void TearDownTestSuite() { delete directory_; }

  static void setUp(KvMailMan& mailMan, const ScriptedSmtpServer& server) {
    mailMan.UnlockComponent("code");
    mailMan.put_SmtpHost("127.0.0.1");
    mailMan.put_SmtpPort(server.port());
    mailMan.put_HeloHostname("pc.example");
    mailMan.put_SmtpUsername("user");
    mailMan.put_SmtpPassword("secret");
    mailMan.put_StartTLS(true);
    mailMan.put_ReadTimeout(5);
  }

  static bool send(KvMailMan& mailMan) {
    KvEmail email;
    email.put_From("me@site.example");
    email.AddTo("", "to@site.example");
    email.put_Body("very private");
    return mailMan.SendEmail(email);
  }

  static test_support::TempDir* directory_;
};

test_support::TempDir* TlsSession::directory_ = nullptr;

TEST_F(TlsSession, NothingIsToldBeforeTls) {
  using Prepare = std::function<void(KvMailMan&)>;
  const Prepare nothing = [](KvMailMan&) {};
  const Prepare verified = [](KvMailMan& m) { m.put_RequireVerifiedCertificate(true); };
  const Prepare implicit = [](KvMailMan& m) {
    m.put_StartTLS(false);
    m.put_SmtpSsl(true);
  };
  const auto requirement = [](const char* name, const char* value) {
    return Prepare([name, value](KvMailMan& m) { m.SetSslCertRequirement(name, value); });
  };
  struct Case {
    const char* what;
    std::string script;
    Prepare prepare;
    bool sent;
    std::vector<const char*> logged;
  };
  const Case cases[] = {
      {"STARTTLS before EHLO",
       kStart + "TLS: trusted\n" + kSession,
       verified,
       true,
       {"Sending STARTTLS (1)...", "SSL Server Certificate verified.",
        "Secure Channel Established.", "TLS connection established.", "CONNECTED to ESMTP"}},
      {"implicit TLS",
       "TLS: trusted\nS: 220 ready\\r\\n\n" + kSession,
       implicit,
       true,
       {"Secure Channel Established.", "InitialResponse"}},
      {"a server that wants EHLO first",
       "S: 220 ready\\r\\n\nC: STARTTLS\nS: 503 hello first\\r\\n\nC: EHLO pc.example\n"
       "S: 250-STARTTLS\\r\\n250 AUTH LOGIN\\r\\n\nC: STARTTLS\nS: 220 go on\\r\\n\nTLS: "
       "trusted\n" +
           kSession,  // PLAIN: what was listed in the clear does not count any more
       nothing,
       true,
       {"Received 503 SMTP Status...", "Resending STARTTLS...", "TLS connection established.",
        "<login_method>PLAIN</login_method>"}},
      {"a self-signed certificate is logged",
       kStart + "TLS: selfsigned\n" + kSession,
       nothing,
       true,
       {"SSL Server Certificate not verified.", "TLS connection established."}},
      {"a self-signed certificate when that is not good enough",
       kStart + "TLS: selfsigned\n",
       verified,
       false,
       {"SSL Server Certificate not verified.", "Failed to verify server certificate",
        "Failed to establish TLS connection.", "Failed to connect to SMTP server."}},
      {"another host's certificate",
       kStart + "TLS: otherhost\n",
       verified,
       false,
       {"Failed to verify server certificate"}},
      {"a required subject",
       kStart + "TLS: selfsigned\n" + kSession,
       requirement("subject", "server.test"),
       true,
       {}},
      {"another issuer than required",
       kStart + "TLS: trusted\n",
       requirement("Issuer", "Nobody"),
       false,
       {"SSL server certificate fails to match requirement", "<requireName>Issuer</requireName>",
        "<requireValue>Nobody</requireValue>", "<certValue>Test Authority</certValue>"}},
      {"STARTTLS refused",
       "S: 220 ready\\r\\n\nC: STARTTLS\nS: 454 no\\r\\n\n",
       nothing,
       false,
       {"Failed to receive STARTTLS response", "Failed to connect to SMTP server."}},
      {"STARTTLS refused twice",
       "S: 220 ready\\r\\n\nC: STARTTLS\nS: 503 no\\r\\n\nC: EHLO pc.example\nS: 250 mail\\r\\n\n"
       "C: STARTTLS\nS: 250 yes\\r\\n\n",
       nothing,
       false,
       {"Failed to receive STARTTLS response (2)"}},
      {"replies slipped in before the handshake",
       "S: 220 ready\\r\\n\nC: STARTTLS\nS: 220 go on\\r\\n250 AUTH PLAIN\\r\\n235 ok\\r\\n\n",
       nothing,
       false,
       {"The server sent data before the TLS handshake.", "Failed to establish TLS connection."}},
      {"no TLS where TLS was promised",
       kStart + "S: 250 AUTH PLAIN\\r\\n\n",
       nothing,
       false,
       {"Failed to establish TLS connection."}},
      {"a plain greeting on a TLS port",
       "S: 220 ready\\r\\n\n",
       implicit,
       false,
       {"Error performing handshake.", "Failed to connect to secure SMTP (1)"}},
      {"silence in the handshake",
       kStart + "SILENCE\n",
       [](KvMailMan& m) { m.put_ReadTimeout(0); },  // one second under TLS
       false,
       {"Timeout waiting to read socket", "Error performing handshake."}},
      {"hung up in the handshake",
       kStart + "HANGUP\n",
       nothing,
       false,
       {"Error performing handshake."}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ScriptedSmtpServer server({c.script});
    {
      KvMailMan mailMan;
      setUp(mailMan, server);
      c.prepare(mailMan);
      EXPECT_EQ(send(mailMan), c.sent);
      const std::string log = mailMan.LastErrorText();
      for (const char* text : c.logged) EXPECT_THAT(log, testing::HasSubstr(text));
      EXPECT_THAT(log, testing::Not(testing::HasSubstr("secret")));
    }
    EXPECT_THAT(server.surprises(), testing::IsEmpty());
    EXPECT_EQ(server.messages().size(), c.sent ? 1U : 0U);
    for (const char* told : {"AUTH", "secret", "MAIL FROM", "private"}) {
      EXPECT_THAT(server.everything(), testing::Not(testing::HasSubstr(told)));
    }
  }
}

// A megabyte is many records in both directions of the record layer.
TEST_F(TlsSession, CarriesALongText) {
  ScriptedSmtpServer server({kStart + "TLS: trusted\n" + kSession});
  const std::string line(76, 'x');
  std::string mime = "A: b\r\n\r\n";
  while (mime.size() < 1'000'000) mime += line + "\r\n";
  {
    KvMailMan mailMan;
    setUp(mailMan, server);
    EXPECT_TRUE(mailMan.SendMime("me@site.example", "to@site.example", mime.c_str()))
        << mailMan.LastErrorText();
    EXPECT_THAT(mailMan.GetSmtpSslServerCert(), testing::StartsWith("-----BEGIN CERTIFICATE-----"));
  }
  EXPECT_EQ(server.messages(), std::vector<std::string>{mime});
}

TEST_F(TlsSession, ResumesTheSessionOfTheConnectionBefore) {
  ScriptedSmtpServer server({kStart + "TLS: trusted\n" + kSession});
  for (int i = 0; i < 3; ++i) {
    KvMailMan mailMan;
    setUp(mailMan, server);
    mailMan.put_RequireVerifiedCertificate(true);
    EXPECT_TRUE(send(mailMan)) << mailMan.LastErrorText();
  }
  EXPECT_THAT(server.surprises(), testing::IsEmpty());
  EXPECT_EQ(server.resumedSessions(), 2);
}

}  // namespace
}  // namespace kelvado
