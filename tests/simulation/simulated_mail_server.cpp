// platform/network/socket_api.h, the system's clock and random numbers in the simulated world: one
// mail server, which speaks SMTP and fails as the world's faults say.
#include "base/ascii.h"
#include "platform/network/socket_api.h"
#include "platform/system/random.h"
#include "tests/simulation/world.h"
#include "tests/support/fake_network.h"

namespace platform {
namespace {

using simulation::kSecond;
using simulation::world;

// A server of today takes so many mails over a connection, and waits so long for the next.
constexpr int kMailsPerConnection = 20;
constexpr std::int64_t kIdleTime = 60 * kSecond;
constexpr std::int64_t kAnswerTime = kSecond / 50;

struct Session {
  std::string toClient, fromClient;
  bool closed = false, silent = false, inData = false;
  bool leaving = false;  // QUIT may come out of a destructor
  int mailsTaken = 0;
  std::int64_t lastHeard = world().clock.now;
  std::string recipient, text;
  std::vector<std::size_t> unconfirmed;  // mails whose reply the client has not read yet
};

class MailServer final : public test_support::FakeNetwork {
 public:
  MailServer() : FakeNetwork(unused_) {}
  SocketHandle open(SocketError&) override {
    world().call();
    sessions_[++last_] = {};
    return last_;
  }
  SocketError connect(SocketHandle socket, const std::string&, std::uint16_t) override {
    world().call();
    if (world().has(world().faults.mailDown)) return kWsaConnectionRefused;
    answer(sessions_[socket], "220 mail.example\r\n");
    return kSocketOk;
  }
  void close(SocketHandle socket) override {
    world().quietCall();
    sessions_.erase(socket);
  }
  Ready waitReadable(SocketHandle socket, std::uint32_t ms, SocketError&) override {
    Session& session = sessions_[socket];
    callOf(session);
    if (!session.closed && world().clock.now - session.lastHeard > kIdleTime) {
      close(session, "421 idle for too long\r\n");
    }
    if (!session.toClient.empty() || session.closed) return Ready::Yes;
    world().clock.sleep(ms);
    return Ready::TimedOut;
  }
  Ready waitWritable(SocketHandle, std::uint32_t, SocketError&) override { return Ready::Yes; }
  SocketError send(SocketHandle socket, std::string_view bytes, std::size_t& count) override {
    Session& session = sessions_[socket];
    session.leaving = base::beginsWithNoCase(bytes, "QUIT");
    callOf(session);
    if (session.closed || world().dead()) return kWsaConnectionReset;
    count = bytes.size();
    session.fromClient.append(bytes);
    const std::string_view text = session.fromClient;
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = text.find("\r\n", begin)) != std::string::npos;
         begin = end + 2) {
      if (!session.closed && !session.silent) takeLine(session, text.substr(begin, end - begin));
    }
    session.fromClient.erase(0, begin);
    return kSocketOk;
  }
  SocketError receive(SocketHandle socket, char* buffer, std::size_t capacity,
                      std::size_t& count) override {
    world().quietCall();
    Session& session = sessions_[socket];
    count = session.toClient.copy(buffer, capacity);
    session.toClient.erase(0, count);
    for (const std::size_t mail : session.unconfirmed) {
      world().mails[mail].confirmed = !world().dead();
    }
    session.unconfirmed.clear();
    return count > 0 || session.closed ? kSocketOk : kWsaWouldBlock;
  }

 private:
  static void callOf(const Session& session) {
    session.leaving ? world().quietCall() : world().call();
  }

  static void close(Session& session, const char* words) {
    session.toClient += words;
    session.closed = true;
  }

  static void takeLine(Session& session, std::string_view line) {
    const auto is = [&line](const char* verb) { return base::beginsWithNoCase(line, verb); };
    session.lastHeard = world().clock.now;
    if (session.inData && line != ".") {
      session.text.append(line).append(1, '\n');
    } else if (session.inData) {
      session.inData = false;
      answer(session, "250 accepted\r\n", true);
    } else if (is("QUIT")) {
      close(session, "221 bye\r\n");
    } else if (is("EHLO")) {
      answer(session, "250-mail.example\r\n250 PIPELINING\r\n");
    } else if (is("MAIL") && ++session.mailsTaken > kMailsPerConnection) {
      close(session, "421 enough for now\r\n");
    } else if (is("RCPT")) {
      const std::size_t begin = line.find('<') + 1;
      const std::string recipient(line.substr(begin, line.find('>') - begin));
      session.recipient = answer(session, "250 ok\r\n") ? recipient : "";
    } else if (is("DATA") && session.recipient.empty()) {
      session.toClient += "503 no recipient\r\n";
    } else if (is("DATA")) {
      session.text.clear();
      session.inData = answer(session, "354 go on\r\n");
    } else {
      session.recipient.clear();
      answer(session, "250 ok\r\n");
    }
  }

  // The reply, or one of the faults. True when it was the reply.
  static bool answer(Session& session, const std::string& reply, bool acceptsMail = false) {
    enum { ForNow, ForGood, Silence, Break, Closing, BreakBehind, Ways };
    world().clock.now += kAnswerTime;
    session.silent = session.silent || world().has(world().faults.mailSilent);
    session.closed = session.closed || world().has(world().faults.mailDown);
    if (session.silent || session.closed) return false;
    const int way = world().random.below(Ways);
    const bool fails =
        world().fails(world().faults.mail, "mail server fails ", std::to_string(way));
    if (acceptsMail && (!fails || way == BreakBehind)) {
      if (!fails) session.unconfirmed.push_back(world().mails.size());
      world().mails.push_back({world().clock.now, session.recipient, session.text});
    }
    if (!fails) session.toClient += reply;
    if (!fails) return true;
    if (way == ForNow) session.toClient += "451 try later\r\n";
    if (way == ForGood) session.toClient += "550 no\r\n";
    if (way == Closing) session.toClient += "421 closing\r\n";
    session.silent = way == Silence;
    session.closed = way >= Break;
    return false;
  }

  test_support::ManualClock unused_;  // time passes in the world
  std::map<SocketHandle, Session> sessions_;
  SocketHandle last_ = 0;
};

}  // namespace

SocketApi& systemSockets() {
  static MailServer server;
  return server;
}

Clock& systemClock() {
  return world().clock;
}

std::uint32_t random32() {
  return static_cast<std::uint32_t>(world().random.below(std::uint64_t{1} << 31U));
}

}  // namespace platform
