// One mail in conversation with a scripted server.
#pragma once

#include <functional>
#include <map>
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

// What scripts say again and again, in a word of lower case.
inline std::string expanded(const std::string& script) {
  static const std::map<std::string, std::string> words = {
      {"ehlo", "S: 220 ready|C: EHLO pc.example"},
      {"hello", "S: 220 ready|C: EHLO pc.example|S: 250 mail"},
      {"helo", "S: 220 ready|C: EHLO pc.example|S: 502 what|C: HELO pc.example|S: 250 ok"},
      {"from", "C: MAIL FROM:<me@site.example>"},
      {"to", "C: RCPT TO:<to@site.example>"},
      {"cc", "C: RCPT TO:<cc@site.example>"},
      {"bcc", "C: RCPT TO:<bcc@site.example>"},
      {"ok", "S: 250 ok"},
      {"no", "S: 550 no"},
      {"many", "S: 452 too many recipients"},
      {"text", "C: DATA|S: 354 go on|DATA"},
      {"data", "C: DATA|S: 354 go on|DATA|S: 250 queued"},
      {"rset", "C: RSET|S: 250 ok"},
      {"quit", "C: QUIT|S: 221 bye"},
      {"login", "C: AUTH LOGIN|S: 334 VXNlcm5hbWU6|C: dXNlcg==|S: 334 UGFzc3dvcmQ6|C: c2VjcmV0"},
      {"plain", "C: AUTH PLAIN dXNlcgB1c2VyAHNlY3JldA=="},
      {"welcome", "S: 235 welcome"},
      {"mail",
       "C: MAIL FROM:<me@site.example>|S: 250 ok|C: RCPT TO:<to@site.example>|S: 250 ok|"
       "C: DATA|S: 354 go on|DATA|S: 250 queued"}};
  std::string steps;
  std::istringstream list(script);
  for (std::string step; std::getline(list, step, '|');) {
    const auto word = words.find(step);
    steps += (word == words.end() ? step : word->second) + "|";
  }
  return steps;
}

using Prepare = std::function<void(KvMailMan&, KvEmail&)>;
using Send = std::function<bool(KvMailMan&, KvEmail&)>;

inline bool sendEmail(KvMailMan& mailMan, KvEmail& email) {
  return mailMan.SendEmail(email);
}

// Sends one mail; each script is for a connection, with words as above. `logged`: as for
// expectInOrder; the password "secret" is not in the log in any case.
inline ScriptedSmtpServer::Record converse(const char* what,
                                           const std::vector<std::string>& scripts, bool sent,
                                           const std::string& logged, const Prepare& prepare = {},
                                           const Send& send = sendEmail,
                                           const test_support::Handshake& handshake = {}) {
  SCOPED_TRACE(what);
  std::vector<std::string> steps;
  for (const std::string& script : scripts) steps.push_back(expanded(script));
  ScriptedSmtpServer server(steps, handshake);
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
