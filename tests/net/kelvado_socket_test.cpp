// The socket's rules that a server cannot show: look-ups, time-outs, aborts, error texts.
#include "net/kelvado_socket.h"

#include <gtest/gtest.h>

#include "mail/core/error_log.h"
#include "net/host_resolver.h"
#include "net/local_host_name.h"
#include "net/socket_errors.h"
#include "tests/support/fake_network.h"

namespace kelvado {
namespace {

using platform::kSocketOk;
using platform::SocketError;

class AbortingSink : public KvProgress {
 public:
  int checksBeforeAbort = 0;
  void AbortCheck(bool& abort) override { abort = --checksBeforeAbort < 0; }
};

class KelvadoSocketTest : public testing::Test {
 protected:
  bool connect(const char* host) { return socket.connect(host, 25, 1000, call); }
  bool logged(const std::string& text) const { return log.text().find(text) != std::string::npos; }

  test_support::ManualClock clock;
  test_support::FakeNetwork network{clock};
  KelvadoSocket socket{network};
  ErrorLog log;
  ProgressMonitor progress{nullptr, 0, clock};
  Call call{log, progress};
  AbortingSink sink;
  ProgressMonitor watched{&sink, 100, clock};
  Call watchedCall{log, watched};
};

TEST_F(KelvadoSocketTest, ConnectsToWhatTheNameMeans) {
  using Hosts = std::vector<std::string>;
  const auto check = [this](const char* host, const Hosts& lookedUp, const Hosts& connected,
                            const char* text) {
    SCOPED_TRACE(host == nullptr ? "null" : host);
    network.lookedUp.clear();
    network.connected.clear();
    log.Clear();
    EXPECT_EQ(connect(host), !connected.empty());
    EXPECT_EQ(network.lookedUp, lookedUp);
    EXPECT_EQ(network.connected, connected);
    EXPECT_TRUE(logged(text)) << log.text();
  };
  check("LocalHost", {}, {"127.0.0.1"}, "IP address passed to DNS lookup");
  check("192.0.2.9", {}, {"192.0.2.9"}, "IP address passed to DNS lookup");
  check("192.0.2.256", {"192.0.2.256"}, {"192.0.2.1"}, "");
  check("192.0.2.010", {"192.0.2.010"}, {"192.0.2.1"}, "");
  check(nullptr, {}, {}, "Cannot connect, hostname is NULL");
  check("", {}, {}, "Cannot connect, hostname is zero length");
  network.connectResults = {platform::kWsaConnectionRefused, kSocketOk};
  check("mail.example", {"mail.example"}, {"192.0.2.1", "192.0.2.2"}, "");
  network.lookupMs = 1000;
  check("slow.example", {"slow.example"}, {}, "<error>Application timeout after DNS</error>");
  network.lookupError = platform::kWsaHostNotFound;
  check("gone.example", {"gone.example"}, {},
        "Cannot get host by name.</error>\r\n<hostname>gone.example</hostname>");
}

TEST_F(KelvadoSocketTest, AConnectThatFailsSaysHow) {
  network.connectResults = {platform::kWsaConnectionRefused, platform::kWsaWouldBlock};
  network.hasRoom = false;
  EXPECT_FALSE(connect("192.0.2.9"));
  EXPECT_FALSE(socket.status().timedOut);
  EXPECT_TRUE(logged("Connect function failed</error>\r\n<sockError>10061</sockError>\r\n"));
  EXPECT_TRUE(
      logged("<SocketError>WSAECONNREFUSED No connection could be made because the target machine "
             "actively refused it.</SocketError>\r\n</KelvadoLog>"));
  EXPECT_FALSE(connect("192.0.2.9"));
  EXPECT_TRUE(socket.status().timedOut);
  EXPECT_TRUE(
      logged("Connect function failed</error>\r\n<sockError>10060</sockError>\r\n"
             "<ConnectTimeoutMs>1000</ConnectTimeoutMs>\r\n<SocketError>WSAETIMEDOUT"));

  log.Clear();
  network.connectResults = {platform::kWsaWouldBlock};
  EXPECT_FALSE(socket.connect("192.0.2.9", 25, 1000, watchedCall));
  EXPECT_TRUE(socket.status().aborted);
  EXPECT_TRUE(logged("<error>Socket connect aborted by application</error>\r\n</KelvadoLog>"));
}

// Each byte comes within the time-out, the line does not.
TEST_F(KelvadoSocketTest, DrippingDoesNotProlongARead) {
  ASSERT_TRUE(connect("192.0.2.9"));
  network.incoming.assign(100, "x");
  network.arrivalMs = 300;
  std::string line;
  EXPECT_FALSE(socket.readUntilMatch("\r\n", line, {Countdown(1000, clock), 1000}, call));
  EXPECT_TRUE(socket.status().timedOut);
  EXPECT_EQ(clock.ticks, 1000U);
  EXPECT_TRUE(logged("<timeoutMs>1000</timeoutMs>"));
}

TEST_F(KelvadoSocketTest, WaitsWholeWithoutAHeartbeatAndInSlicesWithOne) {
  ASSERT_TRUE(connect("192.0.2.9"));
  EXPECT_FALSE(socket.waitForData(1000, call));
  EXPECT_EQ(network.waits, std::vector<std::uint32_t>{1000});

  network.waits.clear();
  sink.checksBeforeAbort = 3;
  EXPECT_FALSE(socket.waitForData(1000, watchedCall));
  EXPECT_TRUE(socket.status().aborted);
  EXPECT_EQ(network.waits, (std::vector<std::uint32_t>{100, 100, 100}));
  EXPECT_TRUE(logged("Socket read aborted by application"));
}

TEST_F(KelvadoSocketTest, ASendWithoutProgressTimesOut) {
  network.hasRoom = false;
  ASSERT_TRUE(connect("192.0.2.9"));
  EXPECT_FALSE(socket.sendBytes("four", 700, call));
  EXPECT_TRUE(
      logged("Socket send idle timeout</error>\r\n<send_size>4</send_size>\r\n"
             "<idleTimeoutMs>700</idleTimeoutMs>"));
}

// A tick count that goes backwards starts the heartbeat's interval again.
TEST(ProgressMonitor, HeartbeatsSurviveATickCountThatWraps) {
  test_support::ManualClock clock;
  clock.ticks = 0xFFFFFFF0;
  AbortingSink sink;
  ProgressMonitor progress(&sink, 50, clock);
  for (const std::uint32_t ticks : {20U, 69U, 70U}) {
    clock.ticks = ticks;
    EXPECT_EQ(progress.abortCheck(), ticks == 70);
  }
}

TEST_F(KelvadoSocketTest, TheMachinesNameFallsBackStepByStep) {
  const auto check = [this](SocketError start, const std::string& own, SocketError lookup,
                            const char* official, const std::string& name) {
    network.startResult = start;
    network.ownName = own;
    network.lookupError = lookup;
    network.officialName = official;
    EXPECT_EQ(readLocalHostName(network, log), name);
    EXPECT_EQ(logged("WSA startup failed for getting local hostname"), start != kSocketOk);
  };
  check(kSocketOk, "pc", kSocketOk, "pc.example.org", "pc.example.org");
  check(kSocketOk, "pc", platform::kWsaHostNotFound, "", "pc");
  check(kSocketOk, "", platform::kWsaHostNotFound, "", "unknown");
  check(kSocketOk, "pc", kSocketOk, "", "unknown");
  check(kSocketOk, "pc", kSocketOk, "e>\r\nvil <x", "evilx");
  check(kSocketOk, std::string(600, 'x'), platform::kWsaHostNotFound, "", std::string(500, 'x'));
  check(platform::kWsaInvalid, "pc", kSocketOk, "pc", "unknown");
}

TEST(SocketErrors, AreLoggedInWords) {
  const std::pair<SocketError, const char*> cases[] = {
      {10035,
       "socket would block.</SocketError>\r\n<SocketError>Check to make sure the port is not "
       "blocked by a firewall.</SocketError>"},
      {11001,
       "<SocketError>Error 2af9</SocketError>\r\n<SocketError>Check to make sure the connection "
       "is not blocked by a firewall or anti-virus port filtering.</SocketError>"},
  };
  for (const auto& [code, text] : cases) {
    ErrorLog log;
    logSocketError(code, log);
    EXPECT_NE(log.text().find(text), std::string::npos) << log.text();
  }
}

}  // namespace
}  // namespace kelvado
