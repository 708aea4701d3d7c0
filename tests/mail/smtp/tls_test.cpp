// The session over TLS: what is sent in the clear, whose certificate is taken, and what a server
// that tampers with the start of TLS achieves.
#include <algorithm>
#include <cstdlib>

#include "platform/system/files.h"
#include "tests/mail/smtp/conversation.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tls_server.h"

namespace kelvado {
namespace {

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

// Only what TLS needs may be sent in the clear.
std::vector<std::string> converseInTls(const Conversation& conversation, const Begin& begin = {}) {
  const auto record = converse(conversation, begin, test_support::tlsHandshake);
  for (const char* secret : {"AUTH", "secret", "MAIL FROM", "subject"}) {
    EXPECT_THAT(record.inTheClear, Not(HasSubstr(secret))) << conversation.title;
  }
  return record.messages;
}

TEST(TlsConversation, GoesAsWritten) {
  for (const char* file : {"tls", "token"}) {
    for (const Conversation& conversation : conversationsOf(file)) {
      const bool sent = std::ranges::count(conversation.actions, "succeeds SendEmail") == 1;
      EXPECT_EQ(converseInTls(conversation).size(), sent ? 1U : 0U) << conversation.title;
    }
  }
}

// A megabyte is many pieces, and many records.
TEST(TlsConversation, CarriesALongText) {
  class Percents : public KvProgress {
   public:
    std::vector<int> reported;
    void PercentDone(int percent, bool&) override { reported.push_back(percent); }
  } percents;
  std::string mime = "A: b\r\n\r\n";
  while (mime.size() < 1'000'000) mime += std::string(76, 'x') + "\r\n";
  const auto sendMime = [&](KvMailMan& mailMan, KvEmail&) {
    mailMan.put_SmtpUsername("user");
    mailMan.put_SmtpPassword("secret");
    mailMan.put_StartTLS(true);
    mailMan.put_Progress(&percents);
    EXPECT_TRUE(mailMan.SendMime("me@site.example", "to@site.example", mime.c_str()));
    EXPECT_TRUE(std::string(mailMan.GetSmtpSslServerCert()).starts_with("-----BEGIN CERTIFICATE"));
  };
  const auto script = readConversations("== long\nstarttls\nTLS: trusted\nsession");
  const auto messages = converseInTls(script.front(), sendMime);
  EXPECT_EQ(messages, std::vector<std::string>{mime});
  ASSERT_GT(percents.reported.size(), 5U);
  EXPECT_TRUE(
      std::is_sorted(percents.reported.begin(), percents.reported.end(), std::less_equal<int>()));
  EXPECT_EQ(percents.reported.back(), 100);
}

TEST(TlsConversation, ResumesTheSessionOfTheConnectionBefore) {
  const long before = test_support::resumedSessions();
  const auto script = scriptsOf(readConversations("== TLS\nstarttls\nTLS: trusted\n"
                                                  "C: EHLO pc.example\nS: 250 mail\nmail quit")
                                    .front())
                          .front();
  ScriptedSmtpServer server({script, script, script}, test_support::tlsHandshake);
  for (int i = 0; i < 3; ++i) {
    KvMailMan mailMan;
    KvEmail email;
    setUp(mailMan, email, server);
    mailMan.put_StartTLS(true);
    mailMan.put_RequireVerifiedCertificate(true);
    EXPECT_TRUE(mailMan.SendEmail(email)) << mailMan.LastErrorText();
  }
  EXPECT_THAT(server.finish().surprises, testing::IsEmpty());
  EXPECT_EQ(test_support::resumedSessions(), before + 2);
}

}  // namespace
}  // namespace kelvado
