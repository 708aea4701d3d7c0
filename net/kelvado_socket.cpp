#include "net/kelvado_socket.h"

#include "net/host_resolver.h"
#include "net/socket_errors.h"

namespace kelvado {
namespace {

// For a caller that gives no connect time-out of its own.
constexpr std::uint32_t kDefaultConnectTimeoutMs = 60'000;
constexpr std::size_t kReceiveChunk = 16 * 1024;

bool isLocalhost(std::string_view host) {
  constexpr std::string_view kName = "localhost";
  if (host.size() != kName.size()) return false;
  for (std::size_t i = 0; i < host.size(); ++i) {
    if ((host[i] | 0x20) != kName[i]) return false;
  }
  return true;
}

}  // namespace

void KelvadoSocket::close() {
  if (isConnected()) api_.close(handle_);
  handle_ = platform::kInvalidSocket;
  received_.clear();
}

bool KelvadoSocket::connect(const char* host, std::uint16_t port, std::uint32_t connectTimeoutMs,
                            Call& call) {
  close();
  status_ = {};
  if (host == nullptr || *host == '\0') {
    call.log.LogError(host == nullptr ? "Cannot connect, hostname is NULL"
                                      : "Cannot connect, hostname is zero length");
    return false;
  }
  const std::string remoteHost = isLocalhost(host) ? "127.0.0.1" : host;
  const std::uint32_t timeoutMs =
      connectTimeoutMs == 0 ? kDefaultConnectTimeoutMs : connectTimeoutMs;

  api_.start();
  const Countdown left(timeoutMs, call.progress.clock());
  LookupResult found;
  if (!resolveHost(api_, remoteHost, timeoutMs, found, call)) {
    status_.timedOut = found.timedOut;
    status_.aborted = found.aborted;
    status_.error = platform::kWsaHostNotFound;
    return false;
  }
  if (left.remaining() == 0) {
    status_.timedOut = true;
    call.log.LogError("Application timeout after DNS");
    return false;
  }
  platform::SocketError error = platform::kSocketOk;
  for (const std::string& address : found.addresses) {
    error = connectTo(address, port, left, call);
    if (error == platform::kSocketOk) return true;
    close();
    if (status_.aborted || status_.timedOut) break;  // otherwise the host's next address may answer
  }
  if (status_.aborted) {
    call.log.LogError("Socket connect aborted by application");
    return false;
  }
  status_.error = error;
  call.log.LogError("Connect function failed");
  call.log.LogData("sockError", std::to_string(error));
  call.log.LogData("ConnectTimeoutMs", std::to_string(timeoutMs));
  logSocketError(error, call.log);
  return false;
}

platform::SocketError KelvadoSocket::connectTo(const std::string& address, std::uint16_t port,
                                               const Countdown& left, Call& call) {
  platform::SocketError error = platform::kSocketOk;
  handle_ = api_.open(error);
  if (!isConnected()) {
    call.log.LogError("Cannot connect, invalid socket.");
    return error;
  }
  error = api_.connect(handle_, address, port);
  if (error != platform::kWsaWouldBlock) return error;
  switch (wait(Direction::Write, left, error, call)) {
    case Wait::Ready:
      return api_.pendingError(handle_);
    case Wait::TimedOut:
      status_.timedOut = true;
      return platform::kWsaTimedOut;
    case Wait::Aborted:
      status_.aborted = true;
      return platform::kWsaInterrupted;
    case Wait::Failed:
      break;
  }
  return error;
}

KelvadoSocket::Wait KelvadoSocket::wait(Direction direction, const Countdown& left,
                                        platform::SocketError& error, Call& call) {
  using Ready = platform::SocketApi::Ready;
  for (;;) {
    if (call.progress.abortCheck()) return Wait::Aborted;
    const std::uint32_t slice = call.progress.sliceMs(left.remaining());
    const Ready ready = direction == Direction::Read ? api_.waitReadable(handle_, slice, error)
                                                     : api_.waitWritable(handle_, slice, error);
    if (ready == Ready::Yes) return Wait::Ready;
    if (ready == Ready::Failed) return Wait::Failed;
    if (left.remaining() == 0) return Wait::TimedOut;
  }
}

bool KelvadoSocket::sendBytes(std::string_view data, std::uint32_t idleTimeoutMs, Call& call) {
  status_ = {};
  if (!isConnected()) {
    call.log.LogError("No socket exists for sending (1)");
    return false;
  }
  if (call.progress.abortCheck()) {
    status_.aborted = true;
    call.log.LogError("Socket send aborted by application");
    return false;
  }
  // Waits only when the system's buffer is full: most commands fit into it.
  while (!data.empty()) {
    std::size_t count = 0;
    const platform::SocketError error = api_.send(handle_, data, count);
    if (error == platform::kSocketOk) {
      data.remove_prefix(count);
    } else if (error != platform::kWsaWouldBlock) {
      status_.error = error;
      call.log.LogError("Error sending on socket");
      logSocketError(error, call.log);
      return false;
    } else if (!waitForSpace(data.size(), idleTimeoutMs, call)) {
      return false;
    }
  }
  return true;
}

bool KelvadoSocket::waitForSpace(std::size_t unsent, std::uint32_t idleTimeoutMs, Call& call) {
  platform::SocketError error = platform::kSocketOk;
  switch (wait(Direction::Write, Countdown(idleTimeoutMs, call.progress.clock()), error, call)) {
    case Wait::Ready:
      return true;
    case Wait::TimedOut:
      status_.timedOut = true;
      call.log.LogError("Socket send idle timeout");
      call.log.LogData("send_size", std::to_string(unsent));
      call.log.LogData("idleTimeoutMs", std::to_string(idleTimeoutMs));
      return false;
    case Wait::Aborted:
      status_.aborted = true;
      call.log.LogError("Socket send aborted by application");
      return false;
    case Wait::Failed:
      break;
  }
  status_.error = error;
  call.log.LogError("socket is not ready for writing;");
  logSocketError(error, call.log);
  return false;
}

bool KelvadoSocket::waitForData(const Countdown& left, Call& call) {
  if (!isConnected()) {
    call.log.LogError("This socket is not connected");
    return false;
  }
  platform::SocketError error = platform::kSocketOk;
  switch (wait(Direction::Read, left, error, call)) {
    case Wait::Ready:
      return true;
    case Wait::TimedOut:
      logReadTimeout(left, call);
      call.log.LogError("WaitForData timed out.");
      return false;
    case Wait::Aborted:
      status_.aborted = true;
      call.log.LogError("Socket read aborted by application");
      return false;
    case Wait::Failed:
      break;
  }
  status_.error = error;
  call.log.LogError("Error waiting for socket to become ready for reading.");
  logSocketError(error, call.log);
  return false;
}

void KelvadoSocket::receiveArrived() {
  char chunk[kReceiveChunk];
  std::size_t count = 0;
  if (isConnected() && api_.receive(handle_, chunk, sizeof chunk, count) == platform::kSocketOk) {
    received_.append(chunk,
                     count);  // a connection that has ended, or failed, shows when it is used
  }
}

bool KelvadoSocket::receiveMore(std::string& buffer, const Countdown& left, Call& call) {
  char chunk[kReceiveChunk];
  platform::SocketError error = platform::kWsaWouldBlock;
  std::size_t count = 0;
  while (error == platform::kWsaWouldBlock) {  // a wake-up without data is waited out
    if (!waitForData(left, call)) return false;
    error = api_.receive(handle_, chunk, sizeof chunk, count);
  }
  if (error != platform::kSocketOk) {
    status_.error = error;
    call.log.LogError("SOCKET_ERROR: ");
    logSocketError(error, call.log);
    call.log.LogError("Failed to receive data on the TCP socket");
    return false;
  }
  if (count == 0) {
    status_.peerClosed = true;
    call.log.LogError("The peer has closed the socket (TCP) connection");
    call.log.LogError("Connection closed by server.");
    return false;
  }
  buffer.append(chunk, count);
  return true;
}

std::string KelvadoSocket::localAddress() const {
  std::string address;
  if (isConnected()) api_.localAddress(handle_, address);
  return address;
}

}  // namespace kelvado
