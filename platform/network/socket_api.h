// TCP sockets, one system call each; errors as Winsock numbers. Time-outs, slices and messages are
// in net/. Every socket made here is non-blocking, closed on exec, and has Nagle's algorithm off:
// each write is a whole protocol step, and waiting to merge it with the next costs a delayed
// acknowledgement of some 40 ms.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

using SocketHandle = std::intptr_t;
inline constexpr SocketHandle kInvalidSocket = -1;

// Winsock error numbers.
using SocketError = int;
inline constexpr SocketError kSocketOk = 0;
inline constexpr SocketError kWsaInterrupted = 10004;
inline constexpr SocketError kWsaInvalid = 10022;
inline constexpr SocketError kWsaWouldBlock = 10035;
inline constexpr SocketError kWsaConnectionReset = 10054;
inline constexpr SocketError kWsaTimedOut = 10060;
inline constexpr SocketError kWsaConnectionRefused = 10061;
inline constexpr SocketError kWsaHostNotFound = 11001;

struct ResolvedHost {
  std::vector<std::string> addresses;  // dotted IPv4, in the resolver's order
  std::string officialName;
};

class SocketApi {
 public:
  virtual ~SocketApi() = default;

  virtual SocketError start() = 0;  // WSAStartup, once per process
  // Blocks for as long as the resolver takes; may be called from any thread.
  virtual SocketError resolve(const std::string& host, ResolvedHost& result) = 0;
  virtual SocketError hostName(std::string& name) = 0;

  // A TCP socket (IPv4). kInvalidSocket with `error` set on failure.
  virtual SocketHandle open(SocketError& error) = 0;
  // kWsaWouldBlock while the connection is being made; waitWritable then returns when it is decided
  // and pendingError how.
  virtual SocketError connect(SocketHandle socket, const std::string& address,
                              std::uint16_t port) = 0;
  virtual SocketError pendingError(SocketHandle socket) = 0;
  // Of this side of a connection, dotted.
  virtual SocketError localAddress(SocketHandle socket, std::string& address) = 0;
  virtual void close(SocketHandle socket) = 0;

  enum class Ready { Yes, TimedOut, Failed };
  virtual Ready waitReadable(SocketHandle socket, std::uint32_t timeoutMs, SocketError& error) = 0;
  virtual Ready waitWritable(SocketHandle socket, std::uint32_t timeoutMs, SocketError& error) = 0;

  // kSocketOk with `count` bytes moved; a receive of 0 bytes means that the peer closed its side.
  virtual SocketError send(SocketHandle socket, std::string_view bytes, std::size_t& count) = 0;
  virtual SocketError receive(SocketHandle socket, char* buffer, std::size_t capacity,
                              std::size_t& count) = 0;

  // For servers on this machine (the catcher). Listens on 127.0.0.1; `port` 0 picks a free one and
  // is set to it.
  virtual SocketHandle listenOnLoopback(std::uint16_t& port, SocketError& error) = 0;
  // The connection that waitReadable announced; kWsaWouldBlock when there is none.
  virtual SocketHandle accept(SocketHandle listener, SocketError& error) = 0;
};

// The sockets of this machine. Never destroyed; may be used by several threads.
SocketApi& systemSockets();

}  // namespace platform
