// Berkeley sockets behind platform/network/socket_api.h; errno becomes a Winsock number in one
// place, here.
#include "platform/network/socket_api.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <ctime>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace platform {
namespace {

struct ErrnoRow {
  int number;
  SocketError winsock;
};

constexpr ErrnoRow kErrnoTable[] = {
    {EAGAIN, kWsaWouldBlock},
    {EINPROGRESS, kWsaWouldBlock},  // a non-blocking connect says "would block" under Winsock
    {EINTR, kWsaInterrupted},
    {EINVAL, kWsaInvalid},
    {EBADF, 10038},
    {ENOTSOCK, 10038},
    {EACCES, 10013},
    {EPERM, 10013},
    {EMFILE, 10024},
    {ENFILE, 10024},
    {EPROTOTYPE, 10041},
    {EPROTONOSUPPORT, 10043},
    {ESOCKTNOSUPPORT, 10044},
    {EAFNOSUPPORT, 10047},
    {EADDRINUSE, 10048},
    {EADDRNOTAVAIL, 10049},
    {ENETDOWN, 10050},
    {ENETUNREACH, 10051},
    {ECONNABORTED, 10053},
    {ECONNRESET, kWsaConnectionReset},
    {EPIPE, kWsaConnectionReset},
    {ENOBUFS, 10055},
    {ENOMEM, 10055},
    {EISCONN, 10056},
    {ENOTCONN, 10057},
    {ETIMEDOUT, kWsaTimedOut},
    {ECONNREFUSED, kWsaConnectionRefused},
    {EHOSTUNREACH, 10065},
};

SocketError winsockError(int number) {
  for (const ErrnoRow& row : kErrnoTable) {
    if (row.number == number) return row.winsock;
  }
  return number;  // has no Winsock counterpart: shown as it is
}

std::int64_t monotonicMs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

int descriptor(SocketHandle socket) {
  return static_cast<int>(socket);
}

void disableNagle(int fd) {
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

class PosixSockets final : public SocketApi {
 public:
  SocketError start() override { return kSocketOk; }

  SocketError resolve(const std::string& host, ResolvedHost& result) override {
    result = {};
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_CANONNAME;
    addrinfo* list = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &hints, &list) != 0) return kWsaHostNotFound;
    for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
      if (entry->ai_canonname != nullptr) result.officialName = entry->ai_canonname;
      char text[INET_ADDRSTRLEN];
      const auto* address = reinterpret_cast<const sockaddr_in*>(entry->ai_addr);
      if (inet_ntop(AF_INET, &address->sin_addr, text, sizeof text) != nullptr) {
        result.addresses.emplace_back(text);
      }
    }
    freeaddrinfo(list);
    return result.addresses.empty() ? kWsaHostNotFound : kSocketOk;
  }

  SocketError hostName(std::string& name) override {
    char buffer[HOST_NAME_MAX + 1] = {};
    name.clear();
    if (gethostname(buffer, sizeof buffer - 1) != 0) return winsockError(errno);
    name = buffer;
    return kSocketOk;
  }

  SocketHandle open(SocketError& error) override {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    error = fd < 0 ? winsockError(errno) : kSocketOk;
    if (fd < 0) return kInvalidSocket;
    disableNagle(fd);
    return fd;
  }

  SocketError connect(SocketHandle socket, const std::string& address,
                      std::uint16_t port) override {
    sockaddr_in target{};
    target.sin_family = AF_INET;
    target.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &target.sin_addr) != 1) return kWsaInvalid;
    if (::connect(descriptor(socket), reinterpret_cast<const sockaddr*>(&target), sizeof target) ==
        0) {
      return kSocketOk;
    }
    // An interrupted non-blocking connect goes on by itself.
    return errno == EINTR ? kWsaWouldBlock : winsockError(errno);
  }

  SocketError pendingError(SocketHandle socket) override {
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(descriptor(socket), SOL_SOCKET, SO_ERROR, &error, &size) != 0) {
      return winsockError(errno);
    }
    return error == 0 ? kSocketOk : winsockError(error);
  }

  SocketError localAddress(SocketHandle socket, std::string& address) override {
    sockaddr_in own{};
    socklen_t size = sizeof own;
    address.clear();
    if (getsockname(descriptor(socket), reinterpret_cast<sockaddr*>(&own), &size) != 0) {
      return winsockError(errno);
    }
    std::array<char, INET_ADDRSTRLEN> text{};
    if (inet_ntop(AF_INET, &own.sin_addr, text.data(), text.size()) == nullptr) return kWsaInvalid;
    address = text.data();
    return kSocketOk;
  }

  void close(SocketHandle socket) override { ::close(descriptor(socket)); }

  Ready waitReadable(SocketHandle socket, std::uint32_t timeoutMs, SocketError& error) override {
    return wait(descriptor(socket), POLLIN, timeoutMs, error);
  }

  Ready waitWritable(SocketHandle socket, std::uint32_t timeoutMs, SocketError& error) override {
    return wait(descriptor(socket), POLLOUT, timeoutMs, error);
  }

  SocketError send(SocketHandle socket, std::string_view bytes, std::size_t& count) override {
    count = 0;
    ssize_t sent = 0;
    do {
      // A peer that is gone is an error of this call, not a signal to the process.
      sent = ::send(descriptor(socket), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    if (sent < 0) return winsockError(errno);
    count = static_cast<std::size_t>(sent);
    return kSocketOk;
  }

  SocketError receive(SocketHandle socket, char* buffer, std::size_t capacity,
                      std::size_t& count) override {
    count = 0;
    ssize_t received = 0;
    do {
      received = ::recv(descriptor(socket), buffer, capacity, 0);
    } while (received < 0 && errno == EINTR);
    if (received < 0) return winsockError(errno);
    count = static_cast<std::size_t>(received);
    return kSocketOk;
  }

  SocketHandle listenOnLoopback(std::uint16_t& port, SocketError& error) override {
    const SocketHandle listener = open(error);
    if (listener == kInvalidSocket) return kInvalidSocket;
    const int fd = descriptor(listener);
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(fd, generic, size) != 0 || listen(fd, SOMAXCONN) != 0 ||
        getsockname(fd, generic, &size) != 0) {
      error = winsockError(errno);
      ::close(fd);
      return kInvalidSocket;
    }
    port = ntohs(address.sin_port);
    return listener;
  }

  SocketHandle accept(SocketHandle listener, SocketError& error) override {
    const int fd = accept4(descriptor(listener), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    error = fd < 0 ? winsockError(errno) : kSocketOk;
    if (fd < 0) return kInvalidSocket;
    disableNagle(fd);
    return fd;
  }

 private:
  // Signals do not shorten the wait. A closed or broken connection counts as ready: the next send
  // or receive reports what is wrong with it.
  static Ready wait(int fd, short events, std::uint32_t timeoutMs, SocketError& error) {
    error = kSocketOk;
    const std::int64_t deadline = monotonicMs() + timeoutMs;
    pollfd entry{fd, events, 0};
    for (std::int64_t left = timeoutMs; left >= 0; left = deadline - monotonicMs()) {
      const int ready = ::poll(&entry, 1, static_cast<int>(std::min<std::int64_t>(left, INT_MAX)));
      if (ready == 0) return Ready::TimedOut;
      if (ready > 0 && (entry.revents & POLLNVAL) == 0) return Ready::Yes;
      if (ready > 0 || errno != EINTR) {
        error = winsockError(ready > 0 ? EBADF : errno);
        return Ready::Failed;
      }
    }
    return Ready::TimedOut;
  }
};

}  // namespace

SocketApi& systemSockets() {
  static PosixSockets* const sockets = new PosixSockets;  // outlives every user on purpose
  return *sockets;
}

}  // namespace platform
