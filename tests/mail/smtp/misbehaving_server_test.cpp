// A server that misbehaves: each step of a session crossed with each fault. The call must come
// back, the log must say at which step, and the same object must be able to send the next mail.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mail/mime/cls_email.h"
#include "mail/smtp/cls_mail_man.h"
#include "tests/support/scripted_smtp_server.h"

namespace kelvado {
namespace {

using std::string_literals::operator""s;
using test_support::ScriptedSmtpServer;

struct Step {
  const char* name;
  const char* command;  // what the client sends, as a line of the script; empty: nothing
  const char* reply;
  const char* logged;  // when it goes wrong
};

constexpr const char* kRcptFailed = "Failed when sending RCPT TO:<to@site.example>";
constexpr const char* kConnectFailed = "Failed to connect to SMTP server.";

const Step kSteps[] = {
    {"Greeting", "", "220 ready", "Failed to get initial SMTP response.."},
    {"EHLO", "C: EHLO pc.example|", "250 AUTH LOGIN", kConnectFailed},
    {"AUTH", "C: AUTH LOGIN|", "334 VXNlcm5hbWU6", "Failed to login using LOGIN method"},
    {"UserName", "C: dXNlcg==|", "334 UGFzc3dvcmQ6", "Failed to get response to login name"},
    {"Password", "C: c2VjcmV0|", "235 welcome", "Failed to get response to login password"},
    {"MAIL", "C: MAIL FROM:<me@site.example>|", "250 ok",
     "Failed when sending MAIL FROM:<me@site.example>"},
    {"RCPT", "C: RCPT TO:<to@site.example>|", "250 ok", kRcptFailed},
    {"DATA", "C: DATA|", "354 go on", "Failed when sending DATA command"},
    {"EndOfData", "DATA|", "250 queued", "Failed when sending end-of-body"},
};
constexpr std::size_t kMailFrom = 5;
const std::string kQuit = "C: QUIT|S: 221 bye";

struct Fault {
  const char* name;
  std::string script;  // in place of the reply; empty: the right one comes byte by byte
  const char* logged;  // how it shows itself, at any step; empty: the reply is only a wrong one
};

const Fault kFaults[] = {
    {"hangs up", "HANGUP|", "Failed to get SMTP command response..."},
    {"is silent", "SILENCE|", "ReadTimeout expired, abandoning attempt to retrieve SMTP response."},
    {"refuses for now", "S: 450 later|", ""},
    {"refuses", "S: 550 no|", ""},
    {"answers beside the point", "S: 299 hm|", ""},
    {"sends a code alone", "S: 250|", "Unrecognized response from SMTP server"},
    {"sends no number", "S: hello there|", ""},
    {"never comes to an end", "ENDLESS: 250-more\r\n|", "longer than allowed"},
    {"never ends the line", "ENDLESS: 250 more and more and more |", "longer than allowed"},
    {"sends noise", "S: \0\xFF\x1B]]>\x80\x01|"s, ""},
    {"drips", "", ""},
};

std::string conversation(std::size_t from, std::size_t to) {
  std::string script;
  for (std::size_t i = from; i < to; ++i) {
    script += kSteps[i].command + ("S: " + std::string(kSteps[i].reply)) + "|";
  }
  return script;
}

enum class Way { Plain, StartTls, Ssl, SecondMail, Quit };

struct Case {
  std::string name;
  std::string before;     // of the script, up to the reply
  std::string reply;      // the right one
  std::string after;      // the rest of the script when the reply comes
  std::string unwelcome;  // what the client tries next when it does not
  std::string logged;
  Way way = Way::Plain;
};

std::vector<Case> cases() {
  const std::string noHelo = "C: HELO 127.0.0.1|S: 500 no|";
  const std::size_t end = std::size(kSteps);
  const std::string mail = conversation(0, end);
  const std::string greeting = conversation(0, 1);
  const std::string ahead = "S: 220 ready|C: EHLO pc.example|S: 250 PIPELINING|";
  const std::string transaction = conversation(kMailFrom, end);
  const Step& mailFrom = kSteps[kMailFrom];
  const Step& rcptTo = kSteps[kMailFrom + 1];
  std::vector<Case> all = {
      {"HELO", greeting + "C: EHLO pc.example|S: 502 no|C: HELO pc.example|", "250 ok",
       conversation(2, end), noHelo, "Failed to get response to Hello (HELO)"},
      {"STARTTLS", greeting + "C: STARTTLS|", "220 go", "HANGUP|", "",
       "Failed to receive STARTTLS response", Way::StartTls},
      {"Handshake", "", "220 no TLS", "", "", "Error performing handshake.", Way::Ssl},
      {"RSET", mail + "C: RSET|", "250 ok", transaction, "", "RSET failed.", Way::SecondMail},
      {"QUIT", mail + "C: QUIT|", "221 bye", "", "", "", Way::Quit},
      // Where commands go out ahead, the ones behind a bad reply are answered all the same.
      {"MailAhead", ahead + mailFrom.command, "250 ok", conversation(kMailFrom + 1, end),
       rcptTo.command + "S: 503 no|"s, mailFrom.logged},
      {"RcptAhead", ahead + conversation(kMailFrom, kMailFrom + 1) + rcptTo.command, "250 ok",
       conversation(kMailFrom + 2, end), "", rcptTo.logged},
      {"RsetAhead", ahead + transaction + "C: RSET|", "250 ok", transaction, "", "RSET failed.",
       Way::SecondMail},
  };
  for (std::size_t i = 0; i < end; ++i) {
    all.push_back({kSteps[i].name, conversation(0, i) + kSteps[i].command, kSteps[i].reply,
                   conversation(i + 1, end), i == 1 ? "C: HELO pc.example|S: 500 no|" + noHelo : "",
                   kSteps[i].logged});
  }
  return all;
}

std::string withFault(const Case& step, const Fault& fault) {
  if (fault.script.empty()) return step.before + "DRIP: " + step.reply + "|" + step.after;
  return step.before + fault.script + step.unwelcome;
}

class MisbehavingServer : public testing::TestWithParam<Case> {};

TEST_P(MisbehavingServer, CostsOneMailAtMost) {
  const Case& step = GetParam();
  const bool secure = step.way == Way::StartTls || step.way == Way::Ssl;
  const std::string whole = conversation(0, std::size(kSteps)) + kQuit;
  const std::string afterReset =
      "C: RSET|S: 250 ok|" + conversation(kMailFrom, std::size(kSteps)) + kQuit;
  for (const Fault& fault : kFaults) {
    SCOPED_TRACE(step.name + ": the server " + fault.name);
    const bool dripped = fault.script.empty();
    ScriptedSmtpServer server({withFault(step, fault) + afterReset, whole, whole});
    ClsMailMan mailMan;
    SmtpServer& settings = mailMan.settings().server;
    mailMan.unlockComponent("code");
    settings.host = "127.0.0.1";
    settings.port = server.port();
    settings.helloName = "pc.example";
    settings.credentials.username = "user";
    settings.credentials.password = "secret";
    settings.readTimeoutMs = fault.script == "SILENCE|" ? 60 : 5000;
    settings.startTls = step.way == Way::StartTls;
    settings.ssl = step.way == Way::Ssl;
    ClsEmail email;
    email.putFrom("me@site.example");
    email.addRecipient("AddTo", RecipientKind::To, "", "to@site.example");

    if (step.way >= Way::SecondMail) {
      EXPECT_TRUE(mailMan.sendEmail(&email));
    }
    if (step.way == Way::Quit) {
      mailMan.closeSmtpConnection();
    } else {
      // After a failed RSET the mail goes over a new connection.
      const bool sent = (dripped && !secure) || step.way == Way::SecondMail;
      EXPECT_EQ(mailMan.sendEmail(&email), sent);
    }
    const std::string log = mailMan.log().text();
    if (!dripped) {
      EXPECT_THAT(log, testing::HasSubstr(step.logged));
      if (step.way != Way::Ssl) {
        EXPECT_THAT(log, testing::HasSubstr(fault.logged));
      }
    }
    EXPECT_THAT(log, testing::Not(testing::HasSubstr("secret")));
    EXPECT_EQ(log.find('\0'), std::string::npos);
    // Only a reply rejects a recipient.
    const bool rejected = step.logged == kRcptFailed && !dripped && *fault.logged == '\0';
    EXPECT_EQ(mailMan.badAddresses().size(), rejected ? 1U : 0U);

    settings.readTimeoutMs = 5000;
    settings.startTls = settings.ssl = false;
    EXPECT_TRUE(mailMan.sendEmail(&email)) << log << mailMan.log().text();
  }
}

INSTANTIATE_TEST_SUITE_P(Steps, MisbehavingServer, testing::ValuesIn(cases()),
                         [](const auto& step) { return step.param.name; });

}  // namespace
}  // namespace kelvado
