// One mail in conversation with a scripted server.
#pragma once

#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mail/smtp/kv_mail_man.h"
#include "tests/support/scripted_smtp_server.h"

namespace kelvado {

using test_support::ScriptedSmtpServer;
using testing::HasSubstr;
using testing::Not;

inline void setUp(KvMailMan& mailMan, KvEmail& email, const ScriptedSmtpServer& server) {
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

// `texts`: in their order, with '|' between them.
inline void expectInOrder(const std::string& log, const std::string& texts) {
  std::istringstream list(texts);
  std::size_t from = 0;
  for (std::string text; std::getline(list, text, '|');) {
    const std::size_t at = log.find(text, from);
    ASSERT_NE(at, std::string::npos) << "\"" << text << "\" is missing in\n" << log;
    from = at + text.size();
  }
}

using Prepare = std::function<void(KvMailMan&, KvEmail&)>;
using Send = std::function<bool(KvMailMan&, KvEmail&)>;

inline bool sendEmail(KvMailMan& mailMan, KvEmail& email) {
  return mailMan.SendEmail(email);
}

// Sends one mail; each script is for a connection. `logged`: as for expectInOrder; the password
// "secret" is not in the log in any case.
inline ScriptedSmtpServer::Record converse(const char* what,
                                           const std::vector<std::string>& scripts, bool sent,
                                           const std::string& logged, const Prepare& prepare = {},
                                           const Send& send = sendEmail,
                                           const test_support::Handshake& handshake = {}) {
  SCOPED_TRACE(what);
  ScriptedSmtpServer server(scripts, handshake);
  {
    KvMailMan mailMan;
    KvEmail email;
    setUp(mailMan, email, server);
    if (prepare) prepare(mailMan, email);
    EXPECT_EQ(send(mailMan, email), sent);
    const std::string log = mailMan.LastErrorText();
    expectInOrder(log, logged);
    EXPECT_THAT(log, Not(HasSubstr("secret")));
    EXPECT_THAT(log, Not(HasSubstr("c2VjcmV0")));
  }
  EXPECT_THAT(server.finish().surprises, testing::IsEmpty());
  EXPECT_EQ(server.finish().connections, scripts.size());
  return server.finish();
}

}  // namespace kelvado
