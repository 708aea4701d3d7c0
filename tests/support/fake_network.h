// A network that does what a test says; time passes only in here.
#pragma once

#include <algorithm>
#include <deque>
#include <string>
#include <vector>

#include "platform/network/socket_api.h"
#include "tests/support/manual_clock.h"

namespace test_support {

class FakeNetwork : public platform::SocketApi {
 public:
  using SocketError = platform::SocketError;
  using SocketHandle = platform::SocketHandle;

  explicit FakeNetwork(ManualClock& clock) : clock_(clock) {}

  SocketError startResult = platform::kSocketOk;
  std::string ownName = "pc", officialName;
  std::uint32_t lookupMs = 0;
  SocketError lookupError = platform::kSocketOk;
  std::deque<SocketError> connectResults;
  std::deque<std::string> incoming;  // what comes in pieces
  std::uint32_t arrivalMs = 0;       // between two of them
  bool hasRoom = true;               // for what is sent
  std::vector<std::string> lookedUp, connected;
  std::string sent;
  std::vector<std::uint32_t> waits;

  SocketError start() override { return startResult; }
  SocketError resolve(const std::string& host, platform::ResolvedHost& result) override {
    lookedUp.push_back(host);
    clock_.ticks += lookupMs;
    result.addresses = {"192.0.2.1", "192.0.2.2"};
    result.officialName = officialName;
    return lookupError;
  }
  SocketError hostName(std::string& name) override {
    name = ownName;
    return name.empty() ? platform::kWsaInvalid : platform::kSocketOk;
  }
  SocketHandle open(SocketError&) override { return 7; }
  SocketError connect(SocketHandle, const std::string& address, std::uint16_t) override {
    connected.push_back(address);
    if (connectResults.empty()) return platform::kSocketOk;
    const SocketError result = connectResults.front();
    connectResults.pop_front();
    return result;
  }
  SocketError pendingError(SocketHandle) override { return platform::kSocketOk; }
  SocketError localAddress(SocketHandle, std::string& address) override {
    address = "192.0.2.7";
    return platform::kSocketOk;
  }
  void close(SocketHandle) override {}
  Ready waitReadable(SocketHandle, std::uint32_t ms, SocketError&) override {
    waits.push_back(ms);
    const std::uint32_t passed = incoming.empty() ? ms : std::min(ms, arrivalMs);
    clock_.ticks += passed;
    return incoming.empty() || passed < arrivalMs ? Ready::TimedOut : Ready::Yes;
  }
  Ready waitWritable(SocketHandle, std::uint32_t ms, SocketError&) override {
    if (hasRoom) return Ready::Yes;
    clock_.ticks += ms;
    return Ready::TimedOut;
  }
  SocketError send(SocketHandle, std::string_view bytes, std::size_t& count) override {
    count = hasRoom ? bytes.size() : 0;
    sent.append(bytes.substr(0, count));
    return hasRoom ? platform::kSocketOk : platform::kWsaWouldBlock;
  }
  SocketError receive(SocketHandle, char* buffer, std::size_t capacity,
                      std::size_t& count) override {
    if (incoming.empty()) return platform::kWsaWouldBlock;
    count = incoming.front().copy(buffer, capacity);
    incoming.front().erase(0, count);
    if (incoming.front().empty()) incoming.pop_front();
    return platform::kSocketOk;
  }
  SocketHandle listenOnLoopback(std::uint16_t&, SocketError&) override { return -1; }
  SocketHandle accept(SocketHandle, SocketError&) override { return -1; }

 private:
  ManualClock& clock_;
};

}  // namespace test_support
