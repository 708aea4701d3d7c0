// Winsock 2 behind platform/network/socket_api.h.
#include "platform/network/socket_api.h"

#include <algorithm>
#include <array>
#include <climits>

#include <winsock2.h>
#include <windows.h>
#include <ws2tcpip.h>

namespace platform {
namespace {

constexpr WORD kWinsockVersion = MAKEWORD(2, 2);
constexpr std::size_t kHostNameCapacity = 256;  // always enough for gethostname, NUL included

SOCKET native(SocketHandle socket) {
  return static_cast<SOCKET>(socket);
}

// Non-blocking, not for child processes, Nagle's algorithm off, urgent data among the rest: it
// would count as an exception that waitWritable ends with. kInvalidSocket, closed and with `error`
// set, when it cannot be.
SocketHandle prepared(SOCKET socket, SocketError& error) {
  error = socket == INVALID_SOCKET ? WSAGetLastError() : kSocketOk;
  if (socket == INVALID_SOCKET) return kInvalidSocket;
  SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0);
  const BOOL on = TRUE;
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof on);
  setsockopt(socket, SOL_SOCKET, SO_OOBINLINE, reinterpret_cast<const char*>(&on), sizeof on);
  u_long nonBlocking = 1;
  if (ioctlsocket(socket, FIONBIO, &nonBlocking) == 0) return static_cast<SocketHandle>(socket);
  error = WSAGetLastError();
  closesocket(socket);
  return kInvalidSocket;
}

sockaddr_in loopbackAddress(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

class WindowsSockets final : public SocketApi {
 public:
  WindowsSockets() {
    WSADATA data{};
    started_ = WSAStartup(kWinsockVersion, &data);
  }

  SocketError start() override { return started_; }

  SocketError resolve(const std::string& host, ResolvedHost& result) override {
    result = {};
    const hostent* entry = gethostbyname(host.c_str());  // the answer is the calling thread's own
    if (entry == nullptr) return WSAGetLastError();
    if (entry->h_name != nullptr) result.officialName = entry->h_name;
    for (char** item = entry->h_addr_list; *item != nullptr; ++item) {
      std::array<char, INET_ADDRSTRLEN> text{};
      if (entry->h_addrtype == AF_INET &&
          inet_ntop(AF_INET, *item, text.data(), text.size()) != nullptr) {
        result.addresses.emplace_back(text.data());
      }
    }
    return result.addresses.empty() ? kWsaHostNotFound : kSocketOk;
  }

  SocketError hostName(std::string& name) override {
    std::array<char, kHostNameCapacity> buffer{};
    name.clear();
    if (gethostname(buffer.data(), static_cast<int>(buffer.size())) != 0) return WSAGetLastError();
    name = buffer.data();
    return kSocketOk;
  }

  SocketHandle open(SocketError& error) override {
    return prepared(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP), error);
  }

  SocketError connect(SocketHandle socket, const std::string& address,
                      std::uint16_t port) override {
    sockaddr_in target{};
    target.sin_family = AF_INET;
    target.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &target.sin_addr) != 1) return kWsaInvalid;
    const int result =
        ::connect(native(socket), reinterpret_cast<const sockaddr*>(&target), sizeof target);
    return result == 0 ? kSocketOk : WSAGetLastError();
  }

  SocketError pendingError(SocketHandle socket) override {
    int error = 0;
    int size = sizeof error;
    const int result =
        getsockopt(native(socket), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size);
    return result == 0 ? error : WSAGetLastError();
  }

  SocketError localAddress(SocketHandle socket, std::string& address) override {
    sockaddr_in own{};
    int size = sizeof own;
    address.clear();
    if (getsockname(native(socket), reinterpret_cast<sockaddr*>(&own), &size) != 0) {
      return WSAGetLastError();
    }
    std::array<char, INET_ADDRSTRLEN> text{};
    if (inet_ntop(AF_INET, &own.sin_addr, text.data(), text.size()) == nullptr) return kWsaInvalid;
    address = text.data();
    return kSocketOk;
  }

  void close(SocketHandle socket) override { closesocket(native(socket)); }

  Ready waitReadable(SocketHandle socket, std::uint32_t timeoutMs, SocketError& error) override {
    fd_set readable = only(socket);
    return wait(&readable, nullptr, nullptr, timeoutMs, error);
  }

  Ready waitWritable(SocketHandle socket, std::uint32_t timeoutMs, SocketError& error) override {
    // A connection that could not be made is not writable here but has failed; pendingError says
    // so.
    fd_set writable = only(socket);
    fd_set broken = only(socket);
    return wait(nullptr, &writable, &broken, timeoutMs, error);
  }

  SocketError send(SocketHandle socket, std::string_view bytes, std::size_t& count) override {
    count = 0;
    const int size = static_cast<int>(std::min<std::size_t>(bytes.size(), INT_MAX));
    const int sent = ::send(native(socket), bytes.data(), size, 0);
    if (sent == SOCKET_ERROR) return WSAGetLastError();
    count = static_cast<std::size_t>(sent);
    return kSocketOk;
  }

  SocketError receive(SocketHandle socket, char* buffer, std::size_t capacity,
                      std::size_t& count) override {
    count = 0;
    const int size = static_cast<int>(std::min<std::size_t>(capacity, INT_MAX));
    const int received = ::recv(native(socket), buffer, size, 0);
    if (received == SOCKET_ERROR) return WSAGetLastError();
    count = static_cast<std::size_t>(received);
    return kSocketOk;
  }

  SocketHandle listenOnLoopback(std::uint16_t& port, SocketError& error) override {
    const SocketHandle listener = open(error);
    if (listener == kInvalidSocket) return kInvalidSocket;
    // Here SO_REUSEADDR would let another program take the port over.
    const BOOL on = TRUE;
    setsockopt(native(listener), SOL_SOCKET, SO_EXCLUSIVEADDRUSE,
               reinterpret_cast<const char*>(&on), sizeof on);
    sockaddr_in address = loopbackAddress(port);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    int size = sizeof address;
    if (bind(native(listener), generic, size) != 0 || listen(native(listener), SOMAXCONN) != 0 ||
        getsockname(native(listener), generic, &size) != 0) {
      error = WSAGetLastError();
      close(listener);
      return kInvalidSocket;
    }
    port = ntohs(address.sin_port);
    return listener;
  }

  SocketHandle accept(SocketHandle listener, SocketError& error) override {
    return prepared(::accept(native(listener), nullptr, nullptr), error);
  }

 private:
  static fd_set only(SocketHandle socket) {
    fd_set set{};
    set.fd_count = 1;
    set.fd_array[0] = native(socket);
    return set;
  }

  static Ready wait(fd_set* readable, fd_set* writable, fd_set* broken, std::uint32_t timeoutMs,
                    SocketError& error) {
    constexpr std::uint32_t kMsPerSecond = 1000;
    constexpr long kMicrosecondsPerMs = 1000;
    timeval timeout{};
    timeout.tv_sec = static_cast<long>(timeoutMs / kMsPerSecond);
    timeout.tv_usec = static_cast<long>(timeoutMs % kMsPerSecond) * kMicrosecondsPerMs;
    const int ready = select(0, readable, writable, broken, &timeout);
    error = ready == SOCKET_ERROR ? WSAGetLastError() : kSocketOk;
    if (ready == SOCKET_ERROR) return Ready::Failed;
    return ready == 0 ? Ready::TimedOut : Ready::Yes;
  }

  SocketError started_ = kSocketOk;
};

}  // namespace

SocketApi& systemSockets() {
  static WindowsSockets* const sockets = new WindowsSockets;  // outlives every user on purpose
  return *sockets;
}

}  // namespace platform
