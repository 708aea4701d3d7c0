// A TCP client socket: name look-up, connect with a time-out, send and receive with idle time-outs.
// Waits are cut into slices when the application has an abort check.
// Used by the mail session and, below TLS, by SChannel. One thread at a time.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "net/byte_channel.h"
#include "platform/network/socket_api.h"

namespace kelvado {

class KelvadoSocket final : public ByteChannel {
 public:
  // `api` must live as long as the process: a look-up that timed out may still be running in it.
  explicit KelvadoSocket(platform::SocketApi& api = platform::systemSockets()) : api_(api) {}
  ~KelvadoSocket() override { close(); }

  // Closes an open connection first. A null or empty `host` fails, with a log line of its own.
  // connectTimeoutMs covers look-up and connect together; 0 is the socket's own default.
  bool connect(const char* host, std::uint16_t port, std::uint32_t connectTimeoutMs, Call& call);

  bool isConnected() const override { return handle_ != platform::kInvalidSocket; }
  void close() override;
  bool sendBytes(std::string_view data, std::uint32_t idleTimeoutMs, Call& call) override;

  void receiveArrived() override;

  // Dotted, of this side of the open connection; empty when not known.
  std::string localAddress() const;

  // Public: for programs that wait before they read. False, logged, when nothing came in time, or
  // the wait failed or was aborted.
  bool waitForData(std::uint32_t timeoutMs, Call& call) {
    return waitForData(Countdown(timeoutMs, call.progress.clock()), call);
  }

 protected:
  bool receiveMore(std::string& buffer, const Countdown& left, Call& call) override;
  const char* readAbortedText() const override {
    return "socket read-until-match aborted by application callback";
  }

 private:
  enum class Direction { Read, Write };
  enum class Wait { Ready, TimedOut, Aborted, Failed };

  bool waitForData(const Countdown& left, Call& call);
  Wait wait(Direction direction, const Countdown& left, platform::SocketError& error, Call& call);
  platform::SocketError connectTo(const std::string& address, std::uint16_t port,
                                  const Countdown& left, Call& call);
  bool waitForSpace(std::size_t unsent, std::uint32_t idleTimeoutMs, Call& call);

  platform::SocketApi& api_;
  platform::SocketHandle handle_ = platform::kInvalidSocket;
};

}  // namespace kelvado
