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
using testing::HasSubstr;
using testing::Not;

const std::string kStart = "S: 220 ready|C: STARTTLS|S: 220 go on|";
const std::string kSession =
    "C: EHLO pc.example|S: 250 AUTH PLAIN|C: AUTH PLAIN *|S: 235 ok|"
    "C: MAIL FROM:<me@site.example>|S: 250 ok|C: RCPT TO:<to@site.example>|S: 250 ok|"
    "C: DATA|S: 354 go on|DATA|S: 250 queued|C: QUIT|S: 221 bye";

using Prepare = std::function<void(KvMailMan&)>;

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

// One mail; whatever happens, only what TLS needs is told in the clear.
class TlsConversation : public TlsSession {
 protected:
  static void converse(const char* what, const std::string& script, bool sent,
                       const std::vector<const char*>& logged, const Prepare& prepare = {}) {
    SCOPED_TRACE(what);
    ScriptedSmtpServer server({script});
    {
      KvMailMan mailMan;
      setUp(mailMan, server);
      if (prepare) prepare(mailMan);
      EXPECT_EQ(send(mailMan), sent);
      const std::string log = mailMan.LastErrorText();
      for (const char* text : logged) EXPECT_THAT(log, HasSubstr(text));
      EXPECT_THAT(log, Not(HasSubstr("secret")));
    }
    const auto [messages, surprises, wire] = server.record();
    EXPECT_THAT(surprises, testing::IsEmpty());
    EXPECT_EQ(messages.size(), sent ? 1U : 0U);
    for (const char* told : {"AUTH", "secret", "MAIL FROM", "private"}) {
      EXPECT_THAT(wire, Not(HasSubstr(told)));
    }
  }
};

void requireVerified(KvMailMan& mailMan) {
  mailMan.put_RequireVerifiedCertificate(true);
}

void useImplicitTls(KvMailMan& mailMan) {
  mailMan.put_StartTLS(false);
  mailMan.put_SmtpSsl(true);
}

TEST_F(TlsConversation, BeginsWithTls) {
  converse("STARTTLS before EHLO", kStart + "TLS: trusted|" + kSession, true,
           {"Sending STARTTLS (1)...", "SSL Server Certificate verified.",
            "Secure Channel Established.", "TLS connection established.", "CONNECTED to ESMTP"},
           requireVerified);
  converse("implicit TLS", "TLS: trusted|S: 220 ready|" + kSession, true,
           {"Secure Channel Established.", "InitialResponse"}, useImplicitTls);
  converse("EHLO first; what it listed in the clear does not count later",
           "S: 220 ready|C: STARTTLS|S: 503 hello first|C: EHLO pc.example|"
           "S: 250-STARTTLS\\r\\n250 AUTH LOGIN|C: STARTTLS|S: 220 go on|TLS: trusted|" +
               kSession,
           true,
           {"Received 503 SMTP Status...", "Resending STARTTLS...", "TLS connection established.",
            "<login_method>PLAIN</login_method>"});
  converse("STARTTLS refused", "S: 220 ready|C: STARTTLS|S: 454 no|", false,
           {"Failed to receive STARTTLS response", "Failed to connect to SMTP server."});
  converse(
      "STARTTLS refused twice",
      "S: 220 ready|C: STARTTLS|S: 503 no|C: EHLO pc.example|S: 250 mail|C: STARTTLS|S: 250 no|",
      false, {"Failed to receive STARTTLS response (2)"});
  converse(
      "replies slipped in before the handshake",
      "S: 220 ready|C: STARTTLS|S: 220 go on\\r\\n250 AUTH PLAIN\\r\\n235 ok|", false,
      {"The server sent data before the TLS handshake.", "Failed to establish TLS connection."});
  converse("no TLS where TLS was promised", kStart + "S: 250 AUTH PLAIN|", false,
           {"Failed to establish TLS connection."});
  converse("a plain greeting on a TLS port", "S: 220 ready|", false,
           {"Error performing handshake.", "Failed to connect to secure SMTP (1)"}, useImplicitTls);
  converse("hung up in the handshake", kStart + "HANGUP", false, {"Error performing handshake."});
  converse("silence in the handshake; a read time-out of 0 is one second under TLS",
           kStart + "SILENCE", false,
           {"Timeout waiting to read socket", "Error performing handshake."},
           [](KvMailMan& mailMan) { mailMan.put_ReadTimeout(0); });
}

TEST_F(TlsConversation, LooksAtTheCertificate) {
  const auto requirement = [](const char* name, const char* value) {
    return [=](KvMailMan& mailMan) { mailMan.SetSslCertRequirement(name, value); };
  };
  converse("self-signed: logged only", kStart + "TLS: selfsigned|" + kSession, true,
           {"SSL Server Certificate not verified.", "TLS connection established."});
  converse("self-signed, and that is not good enough", kStart + "TLS: selfsigned|", false,
           {"SSL Server Certificate not verified.", "Failed to verify server certificate",
            "Failed to establish TLS connection."},
           requireVerified);
  converse("another host's", kStart + "TLS: otherhost|", false,
           {"Failed to verify server certificate"}, requireVerified);
  converse("of the required subject", kStart + "TLS: selfsigned|" + kSession, true, {},
           requirement("subject", "server.test"));
  converse(
      "of another issuer", kStart + "TLS: trusted|", false,
      {"SSL server certificate fails to match requirement", "<requireName>Issuer</requireName>",
       "<requireValue>Nobody</requireValue>", "<certValue>Test Authority</certValue>"},
      requirement("Issuer", "Nobody"));
}

// A megabyte is many pieces, and many records.
TEST_F(TlsSession, CarriesALongText) {
  class Percents : public KvProgress {
   public:
    std::vector<int> told;
    void PercentDone(int percent, bool&) override { told.push_back(percent); }
  } percents;
  ScriptedSmtpServer server({kStart + "TLS: trusted|" + kSession});
  std::string mime = "A: b\r\n\r\n";
  while (mime.size() < 1'000'000) mime += std::string(76, 'x') + "\r\n";
  {
    KvMailMan mailMan;
    setUp(mailMan, server);
    mailMan.put_Progress(&percents);
    EXPECT_TRUE(mailMan.SendMime("me@site.example", "to@site.example", mime.c_str()));
    EXPECT_THAT(mailMan.GetSmtpSslServerCert(), testing::StartsWith("-----BEGIN CERTIFICATE-----"));
  }
  EXPECT_EQ(server.record().messages, std::vector<std::string>{mime});
  ASSERT_GT(percents.told.size(), 5U);
  EXPECT_TRUE(std::is_sorted(percents.told.begin(), percents.told.end(), std::less_equal<int>()));
  EXPECT_EQ(percents.told.back(), 100);
}

TEST_F(TlsSession, ResumesTheSessionOfTheConnectionBefore) {
  ScriptedSmtpServer server({kStart + "TLS: trusted|" + kSession});
  for (int i = 0; i < 3; ++i) {
    KvMailMan mailMan;
    setUp(mailMan, server);
    mailMan.put_RequireVerifiedCertificate(true);
    EXPECT_TRUE(send(mailMan)) << mailMan.LastErrorText();
  }
  EXPECT_THAT(server.record().surprises, testing::IsEmpty());
  EXPECT_EQ(server.resumedSessions(), 2);
}

}  // namespace
}  // namespace kelvado
