#include "tests/mail/smtp/conversation.h"

#include <algorithm>
#include <map>
#include <sstream>
#include <stdexcept>

#include "base/text.h"
#include "tests/support/rows.h"

namespace kelvado {
namespace {

const std::string kFolder = CONVERSATIONS;

using Value = const std::string&;
using Set = void (*)(KvMailMan&, KvEmail&, Value);
using Call = bool (*)(KvMailMan&, KvEmail&, Value);

template <void (KvMailMan::*put)(const char*)>
void text(KvMailMan& mailMan, KvEmail&, Value value) {
  (mailMan.*put)(value.c_str());
}

template <auto put>
void number(KvMailMan& mailMan, KvEmail&, Value value) {
  (mailMan.*put)(std::stoi(value));
}

const std::map<std::string, Set> kSets = {
    {"AllOrNone", number<&KvMailMan::put_AllOrNone>},
    {"DsnEnvid", text<&KvMailMan::put_DsnEnvid>},
    {"DsnNotify", text<&KvMailMan::put_DsnNotify>},
    {"DsnRet", text<&KvMailMan::put_DsnRet>},
    {"HeloHostname", text<&KvMailMan::put_HeloHostname>},
    {"HttpProxyHostname", text<&KvMailMan::put_HttpProxyHostname>},
    {"HttpProxyPort", number<&KvMailMan::put_HttpProxyPort>},
    {"OAuth2AccessToken", text<&KvMailMan::put_OAuth2AccessToken>},
    {"ReadTimeout", number<&KvMailMan::put_ReadTimeout>},
    {"RequireVerifiedCertificate", number<&KvMailMan::put_RequireVerifiedCertificate>},
    {"SendIndividual", number<&KvMailMan::put_SendIndividual>},
    {"SmtpAuthMethod", text<&KvMailMan::put_SmtpAuthMethod>},
    {"SmtpHost", text<&KvMailMan::put_SmtpHost>},
    {"SmtpPassword", text<&KvMailMan::put_SmtpPassword>},
    {"SmtpPort", number<&KvMailMan::put_SmtpPort>},
    {"SmtpSsl", number<&KvMailMan::put_SmtpSsl>},
    {"SmtpUsername", text<&KvMailMan::put_SmtpUsername>},
    {"StartTLS", number<&KvMailMan::put_StartTLS>},
    {"CertIssuer",
     [](KvMailMan& m, KvEmail&, Value v) { m.SetSslCertRequirement("Issuer", v.c_str()); }},
    {"CertSubject",
     [](KvMailMan& m, KvEmail&, Value v) { m.SetSslCertRequirement("subject", v.c_str()); }},
    {"Login",  // by the method
     [](KvMailMan& mailMan, KvEmail&, Value method) {
       mailMan.put_SmtpUsername("user");
       mailMan.put_SmtpPassword("secret");
       mailMan.put_SmtpDomain("D");
       mailMan.put_SmtpAuthMethod(method.c_str());
     }},
    {"Utf8",
     [](KvMailMan& mailMan, KvEmail& email, Value) {
       mailMan.put_Utf8(true);
       email.put_Utf8(true);
     }},
    {"From", [](KvMailMan&, KvEmail& email, Value value) { email.put_From(value.c_str()); }},
    {"Cc", [](KvMailMan&, KvEmail& email, Value value) { email.AddCC("", value.c_str()); }},
    {"Bcc", [](KvMailMan&, KvEmail& email, Value value) { email.AddBcc("", value.c_str()); }},
};

const std::map<std::string, Call> kCalls = {
    {"SendEmail", [](KvMailMan& m, KvEmail& email, Value) { return m.SendEmail(email); }},
    {"SendBundle",
     [](KvMailMan& m, KvEmail& e, Value) {
       return m.SendBundle({&e, &e});
     }},
    {"SendMime",  // the value is the sender
     [](KvMailMan& m, KvEmail&, Value v) { return m.SendMime(v.c_str(), "to@x.example", "A: b"); }},
    {"SendToDistributionList",
     [](KvMailMan& m, KvEmail& email, Value list) {
       std::istringstream commas(list);
       std::vector<std::string> addresses;
       for (std::string one; std::getline(commas, one, ',');) addresses.push_back(one);
       return m.SendToDistributionList(email, addresses);
     }},
    {"VerifyRecipients",
     [](KvMailMan& m, KvEmail& email, Value) { return m.VerifyRecipients(email); }},
    {"VerifySmtpConnection",
     [](KvMailMan& m, KvEmail&, Value) { return m.VerifySmtpConnection(); }},
    {"VerifySmtpLogin", [](KvMailMan& m, KvEmail&, Value) { return m.VerifySmtpLogin(); }},
};

// Takes the first word off.
std::string takeWord(std::string& line) {
  const std::string word = line.substr(0, line.find(' '));
  line.erase(0, word.size() + 1);
  return word;
}

bool isAction(const std::string& line) {
  for (const char* kind :
       {"set ", "field ", "succeeds ", "fails ", "log ", "unlogged ", "why ", "last "}) {
    if (line.starts_with(kind)) return true;
  }
  return false;
}

using Lines = std::vector<std::string>;

const std::map<std::string, Lines>& phrases() {
  static const std::map<std::string, Lines> all = [] {
    std::map<std::string, Lines> read;
    std::string word;
    for (const std::string& line :
         test_support::linesOf(test_support::readBytes(kFolder + "/phrases.txt"))) {
      if (line.starts_with("== "))
        word = line.substr(3);
      else
        read[word].push_back(line);
    }
    return read;
  }();
  return all;
}

void addSteps(std::string line, Lines& steps) {
  if (line[0] < 'a' || line[0] > 'z') {
    if (line.ends_with(':')) line += ' ';
    const bool both = line.starts_with("S: ") && !steps.empty() && steps.back().starts_with("S: ");
    if (both)
      steps.back() += "\r\n" + line.substr(3);
    else
      steps.push_back(line);
    return;
  }
  while (!line.empty()) {
    const std::string word = takeWord(line);
    const auto phrase = phrases().find(word);
    ASSERT_NE(phrase, phrases().end()) << "no such phrase: " << word;
    for (const std::string& step : phrase->second) addSteps(step, steps);
  }
}

template <class Map>
const typename Map::mapped_type& named(const Map& map, const std::string& name) {
  const auto found = map.find(name);
  if (found == map.end()) throw std::out_of_range("conversations cannot say " + name);
  return found->second;
}

struct Client {
  KvMailMan mailMan;
  KvEmail email;
  bool hasCalled = false;
  std::string log;         // of the last call
  std::size_t logged = 0;  // up to here its texts were found

  void called(bool any) {
    hasCalled = hasCalled || any;
    log = mailMan.LastErrorText();
    logged = 0;
    EXPECT_THAT(log, Not(HasSubstr("secret")));
    EXPECT_THAT(log, Not(HasSubstr("c2VjcmV0")));
  }

  void perform(std::string action) {
    const std::string kind = takeWord(action);
    if (kind == "log") {
      const std::size_t at = log.find(action, logged);
      ASSERT_NE(at, std::string::npos) << log;
      logged = at + action.size();
    } else if (kind == "unlogged") {
      EXPECT_THAT(log, Not(HasSubstr(action)));
    } else if (kind == "why") {
      const SmtpFailure failure = mailMan.get_LastFailure();
      EXPECT_EQ(failureText(failure) + (failure.timedOut ? " (time-out)" : ""), action);
    } else if (kind != "last") {
      const std::string name = takeWord(action);
      if (kind == "set") {
        named(kSets, name)(mailMan, email, action);
      } else if (kind == "field") {
        email.AddHeaderField(name.c_str(), action.c_str());
      } else {
        EXPECT_EQ(named(kCalls, name)(mailMan, email, action), kind == "succeeds");
        called(true);
      }
    }
  }
};

}  // namespace

std::vector<Conversation> readConversations(const std::string& text) {
  std::vector<Conversation> conversations;
  Lines common;
  for (const std::string& line : test_support::linesOf(text)) {
    if (line.starts_with("== ")) {
      conversations.push_back({line.substr(3), common, {}});
    } else if (conversations.empty()) {
      common.push_back(test_support::unescaped(line));
    } else if (Conversation& current = conversations.back(); isAction(line)) {
      current.actions.push_back(test_support::unescaped(line));
    } else {
      if (current.connections.empty() || line == "new connection") {
        current.connections.emplace_back();
      }
      if (line != "new connection") addSteps(line, current.connections.back());
    }
  }
  return conversations;
}

std::vector<Conversation> conversationsOf(const std::string& name) {
  const auto all = readConversations(test_support::readBytes(kFolder + "/" + name + ".txt"));
  EXPECT_FALSE(all.empty()) << name;
  return all;
}

std::vector<std::string> scriptsOf(const Conversation& conversation) {
  Lines scripts;
  for (const Lines& steps : conversation.connections) {
    std::string& script = scripts.emplace_back();
    for (const std::string& step : steps) script += step + "|";
  }
  return scripts;
}

void setUp(KvMailMan& mailMan, KvEmail& email, const ScriptedSmtpServer& server,
           const Conversation& conversation) {
  mailMan.UnlockComponent("code");
  mailMan.put_SmtpHost("127.0.0.1");
  mailMan.put_SmtpPort(server.port());
  mailMan.put_HeloHostname("pc.example");
  mailMan.put_ReadTimeout(5);
  const auto setsFrom = [](const std::string& action) { return action.starts_with("set From "); };
  if (std::ranges::none_of(conversation.actions, setsFrom)) email.put_From("me@site.example");
  email.AddTo("", "to@site.example");
  email.put_Subject("subject");
  email.put_Body("text");
}

ScriptedSmtpServer::Record converse(const Conversation& conversation, const Begin& begin,
                                    const test_support::Handshake& handshake) {
  SCOPED_TRACE(conversation.title);
  const Lines scripts = scriptsOf(conversation);
  ScriptedSmtpServer server(scripts, handshake);
  {
    Client client;
    setUp(client.mailMan, client.email, server, conversation);
    if (begin) begin(client.mailMan, client.email);
    client.called(begin != nullptr);
    for (std::string action : conversation.actions) {
      SCOPED_TRACE(action);
      base::replaceAll(action, "{port}", std::to_string(server.port()));
      base::replaceAll(action, "{data}", kFolder);
      client.perform(action);
    }
    EXPECT_TRUE(client.hasCalled) << "nothing is called";
  }
  const ScriptedSmtpServer::Record& record = server.finish();
  EXPECT_THAT(record.surprises, testing::IsEmpty());
  EXPECT_EQ(record.connections, scripts.size());
  for (const std::string& action : conversation.actions) {
    if (!action.starts_with("last ")) continue;
    EXPECT_THAT(record.inTheClear, testing::EndsWith(action.substr(5) + "\r\n"));
  }
  return record;
}

}  // namespace kelvado
