// The session over TLS: what is sent in the clear, whose certificate is taken, and what a server
// that tampers with the start of TLS achieves.
#include <cstdlib>

#include "platform/system/files.h"
#include "tests/mail/smtp/conversation.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tls_server.h"

namespace kelvado {
namespace {

const std::string kStart = "S: 220 ready|C: STARTTLS|S: 220 go on|";
const std::string kSession =
    "C: EHLO pc.example|S: 250 AUTH PLAIN|C: AUTH PLAIN *|S: 235 ok|mail|quit";
const std::string kTrusted = kStart + "TLS: trusted|" + kSession;

void useStartTls(KvMailMan& mailMan, KvEmail&) {
  mailMan.put_SmtpUsername("user");
  mailMan.put_SmtpPassword("secret");
  mailMan.put_StartTLS(true);
}

void requireVerified(KvMailMan& mailMan, KvEmail&) {
  mailMan.put_RequireVerifiedCertificate(true);
}

void useImplicitTls(KvMailMan& mailMan, KvEmail&) {
  mailMan.put_StartTLS(false);
  mailMan.put_SmtpSsl(true);
}

// The process trusts what the tests call trusted; before any test, since its first handshake reads
// the authorities for all.
class TrustedAuthorities : public testing::Environment {
  void SetUp() override {
    const std::string file = directory_.path() + "/trusted.pem";
    platform::writeWholeFile(file, test_support::trustedPem());
    setenv("SSL_CERT_FILE", file.c_str(), 1);
  }

  test_support::TempDir directory_;
};
const auto* const trust = testing::AddGlobalTestEnvironment(new TrustedAuthorities);

class TlsConversation : public testing::Test {
 protected:
  // One mail; only what TLS needs may be sent in the clear.
  static std::vector<std::string> converseInTls(const char* what, const std::string& script,
                                                bool sent, const std::string& logged,
                                                const Prepare& prepare = {},
                                                const Send& send = sendEmail) {
    const auto [connections, messages, surprises, inTheClear] = converse(
        what, {script}, sent, logged,
        [&prepare](KvMailMan& mailMan, KvEmail& email) {
          useStartTls(mailMan, email);
          if (prepare) prepare(mailMan, email);
        },
        send, test_support::tlsHandshake);
    EXPECT_EQ(messages.size(), sent ? 1U : 0U) << what;
    for (const char* secret : {"AUTH", "secret", "MAIL FROM", "subject"}) {
      EXPECT_THAT(inTheClear, Not(HasSubstr(secret))) << what;
    }
    return messages;
  }
};

TEST_F(TlsConversation, BeginsWithTls) {
  converseInTls("STARTTLS before EHLO", kTrusted, true,
                "Sending STARTTLS (1)...|SSL Server Certificate verified.|"
                "Secure Channel Established.|TLS connection established.|CONNECTED to ESMTP",
                requireVerified);
  converseInTls("implicit TLS", "TLS: trusted|S: 220 ready|" + kSession, true,
                "Secure Channel Established.|InitialResponse", useImplicitTls);
  converseInTls("EHLO first; what it listed in the clear does not count later",
                "S: 220 ready|C: STARTTLS|S: 503 hello first|C: EHLO pc.example|"
                "S: 250-STARTTLS\r\n250 AUTH LOGIN|C: STARTTLS|S: 220 go on|TLS: trusted|" +
                    kSession,
                true,
                "Received 503 SMTP Status...|Resending STARTTLS...|TLS connection established.|"
                "<login_method>PLAIN</login_method>");
  converseInTls(
      "HELO only, where LOGIN may replace a method that hides the password",
      kStart + "TLS: trusted|C: EHLO pc.example|no|C: HELO pc.example|ok|login|welcome|mail", true,
      "<login_method>LOGIN</login_method>|CONNECTED to SMTP",
      [](KvMailMan& mailMan, KvEmail&) { mailMan.put_SmtpAuthMethod("cram-md5"); });
  converseInTls("STARTTLS refused twice",
                "S: 220 ready|C: STARTTLS|S: 503 no|C: EHLO pc.example|S: 250 mail|"
                "C: STARTTLS|S: 250 no|",
                false, "Failed to receive STARTTLS response (2)|Failed to connect to SMTP server.");
  converseInTls("replies slipped in before the handshake",
                "S: 220 ready|C: STARTTLS|S: 220 go on\r\n250 AUTH PLAIN\r\n235 ok|", false,
                "The server sent data before the TLS handshake.|"
                "Failed to establish TLS connection.");
  converseInTls("no TLS where TLS was promised", kStart + "S: 250 AUTH PLAIN|", false,
                "Failed to establish TLS connection.");
  converseInTls("silence in the handshake; a read time-out of 0 is one second under TLS",
                kStart + "SILENCE", false,
                "Timeout waiting to read socket|Error performing handshake.",
                [](KvMailMan& mailMan, KvEmail&) { mailMan.put_ReadTimeout(0); });
}

TEST_F(TlsConversation, LooksAtTheCertificate) {
  const auto requirement = [](const char* name, const char* value) {
    return [=](KvMailMan& mailMan, KvEmail&) { mailMan.SetSslCertRequirement(name, value); };
  };
  const std::string selfSigned = kStart + "TLS: selfsigned|";
  converseInTls("self-signed: logged only", selfSigned + kSession, true,
                "SSL Server Certificate not verified.|TLS connection established.");
  converseInTls("self-signed, and that is not good enough", selfSigned, false,
                "SSL Server Certificate not verified.|Failed to verify server certificate|"
                "Failed to establish TLS connection.",
                requireVerified);
  converseInTls("another host's", kStart + "TLS: otherhost|", false,
                "Failed to verify server certificate", requireVerified);
  converseInTls("of a name that looks like the end of a log entry", kStart + "TLS: otherhost|",
                false, "<certValue><![CDATA[<![CDATA[]] ><other>]]></certValue>",
                requirement("subject", "other.test"));
  converseInTls("of the required subject", selfSigned + kSession, true, "",
                requirement("subject", "selfsigned.test"));
  converseInTls("of another issuer", kStart + "TLS: trusted|", false,
                "SSL server certificate fails to match requirement|"
                "<requireName>Issuer</requireName>|<requireValue>Nobody</requireValue>|"
                "<certValue>server.test</certValue>",
                requirement("Issuer", "Nobody"));
}

// A megabyte is many pieces, and many records.
TEST_F(TlsConversation, CarriesALongText) {
  class Percents : public KvProgress {
   public:
    std::vector<int> reported;
    void PercentDone(int percent, bool&) override { reported.push_back(percent); }
  } percents;
  std::string mime = "A: b\r\n\r\n";
  while (mime.size() < 1'000'000) mime += std::string(76, 'x') + "\r\n";
  const auto messages =
      converseInTls("long", kTrusted, true, "", {}, [&](KvMailMan& mailMan, KvEmail&) {
        mailMan.put_Progress(&percents);
        return mailMan.SendMime("me@site.example", "to@site.example", mime.c_str()) &&
               std::string(mailMan.GetSmtpSslServerCert()).starts_with("-----BEGIN CERTIFICATE");
      });
  EXPECT_EQ(messages, std::vector<std::string>{mime});
  ASSERT_GT(percents.reported.size(), 5U);
  EXPECT_TRUE(
      std::is_sorted(percents.reported.begin(), percents.reported.end(), std::less_equal<int>()));
  EXPECT_EQ(percents.reported.back(), 100);
}

TEST_F(TlsConversation, ResumesTheSessionOfTheConnectionBefore) {
  const long before = test_support::resumedSessions();
  const std::string script = expanded(kTrusted);
  ScriptedSmtpServer server({script, script, script}, test_support::tlsHandshake);
  for (int i = 0; i < 3; ++i) {
    KvMailMan mailMan;
    KvEmail email;
    setUp(mailMan, email, server);
    useStartTls(mailMan, email);
    requireVerified(mailMan, email);
    EXPECT_TRUE(mailMan.SendEmail(email)) << mailMan.LastErrorText();
  }
  EXPECT_THAT(server.finish().surprises, testing::IsEmpty());
  EXPECT_EQ(test_support::resumedSessions(), before + 2);
}

}  // namespace
}  // namespace kelvado
