#include "tests/support/scripted_smtp_server.h"

#include <sstream>

namespace test_support {
namespace {

using platform::SocketApi;
using platform::SocketError;
using platform::systemSockets;

constexpr std::uint32_t kSliceMs = 20;
constexpr std::uint32_t kPatienceMs = 60000;  // with a client that hangs
constexpr std::uint32_t kDripMs = 5;

class PlainStream : public ServerStream {
 public:
  explicit PlainStream(platform::SocketHandle socket) : socket_(socket) {}

  bool read(std::string& heard) override {
    char chunk[16384];
    std::size_t count = 0;
    SocketError error = platform::kWsaWouldBlock;
    while (error == platform::kWsaWouldBlock) {
      SocketError ignored = platform::kSocketOk;
      if (systemSockets().waitReadable(socket_, kPatienceMs, ignored) != SocketApi::Ready::Yes) {
        return false;
      }
      error = systemSockets().receive(socket_, chunk, sizeof chunk, count);
    }
    heard.append(chunk, count);
    return error == platform::kSocketOk && count > 0;
  }

  bool write(std::string_view bytes) override {
    while (!bytes.empty()) {
      std::size_t count = 0;
      SocketError error = systemSockets().send(socket_, bytes, count);
      bytes.remove_prefix(count);
      if (error == platform::kWsaWouldBlock) {
        systemSockets().waitWritable(socket_, kPatienceMs, error);
      } else if (error != platform::kSocketOk) {
        return false;
      }
    }
    return true;
  }

 private:
  platform::SocketHandle socket_;
};

}  // namespace

class ScriptedSmtpServer::Connection {
 public:
  Connection(platform::SocketHandle socket, std::string& inTheClear)
      : socket_(socket), inTheClear_(inTheClear), stream_(std::make_unique<PlainStream>(socket)) {}
  ~Connection() { systemSockets().close(socket_); }

  bool send(std::string_view bytes) { return stream_->write(bytes); }

  bool startTls(const Handshake& handshake, const std::string& certificate) {
    stream_ = handshake(socket_, certificate);
    secure_ = true;
    return stream_ != nullptr;
  }

  // Up to `delimiter`, which is taken off; false when the client left before.
  bool readUntil(const std::string& delimiter, std::string& text) {
    std::size_t at = 0;
    while ((at = buffer_.find(delimiter)) == std::string::npos) {
      if (!readMore()) return false;
    }
    text = buffer_.substr(0, at);
    buffer_.erase(0, at + delimiter.size());
    return true;
  }

  void readToTheEnd() {
    while (readMore()) continue;
  }

  // A pause that ends early when the client says something or leaves.
  void pause(std::uint32_t ms) {
    SocketError error = platform::kSocketOk;
    systemSockets().waitReadable(socket_, ms, error);
  }

 private:
  bool readMore() {
    const std::size_t before = buffer_.size();
    const bool alive = stream_->read(buffer_);
    if (!secure_) inTheClear_.append(buffer_, before);
    return alive;
  }

  platform::SocketHandle socket_;
  std::string& inTheClear_;
  std::unique_ptr<ServerStream> stream_;
  bool secure_ = false;
  std::string buffer_;
};

ScriptedSmtpServer::ScriptedSmtpServer(std::vector<std::string> scripts, Handshake handshake)
    : scripts_(std::move(scripts)), handshake_(std::move(handshake)) {
  SocketError error = platform::kSocketOk;
  listener_ = systemSockets().listenOnLoopback(port_, error);
  thread_ = std::thread([this] { serve(); });
}

ScriptedSmtpServer::~ScriptedSmtpServer() {
  finish();
}

const ScriptedSmtpServer::Record& ScriptedSmtpServer::finish() {
  if (!thread_.joinable()) return record_;
  stop_ = true;
  thread_.join();
  systemSockets().close(listener_);
  return record_;
}

void ScriptedSmtpServer::serve() {
  while (!stop_) {
    SocketError error = platform::kSocketOk;
    if (systemSockets().waitReadable(listener_, kSliceMs, error) != SocketApi::Ready::Yes) continue;
    const platform::SocketHandle socket = systemSockets().accept(listener_, error);
    if (socket == platform::kInvalidSocket) continue;
    Connection connection(socket, record_.inTheClear);
    const std::size_t number = record_.connections++;
    std::istringstream steps(number < scripts_.size() ? scripts_[number] : "HANGUP");
    bool open = true;
    for (std::string step; open && std::getline(steps, step, '|');) {
      const std::size_t colon = step.find(": ");
      const std::string text = colon == std::string::npos ? "" : step.substr(colon + 2);
      open = runStep(connection, step.substr(0, colon), text);
    }
    if (open) connection.readToTheEnd();
  }
}

// False when the connection is at its end.
bool ScriptedSmtpServer::runStep(Connection& connection, const std::string& verb,
                                 const std::string& text) {
  if (verb == "S") return connection.send(text + "\r\n");
  if (verb == "C") return expectLine(connection, text);
  if (verb == "DATA") return connection.readUntil("\r\n.\r\n", record_.messages.emplace_back());
  if (verb == "TLS") return connection.startTls(handshake_, text);
  if (verb == "DRIP") {
    for (const char c : text + "\r\n") {
      connection.pause(kDripMs);
      if (!connection.send({&c, 1})) return false;
    }
    return true;
  }
  while (verb == "ENDLESS" && connection.send(text)) continue;
  if (verb == "SILENCE") connection.readToTheEnd();
  return false;  // HANGUP, or the client left
}

bool ScriptedSmtpServer::expectLine(Connection& connection, const std::string& expected) {
  std::string heard;
  const bool alive = connection.readUntil("\r\n", heard);
  const bool open = !expected.empty() && expected.back() == '*';
  const bool matches =
      open ? heard.starts_with(expected.substr(0, expected.size() - 1)) : heard == expected;
  if (alive && matches) return true;
  record_.surprises.push_back("expected \"" + expected + "\", got \"" + heard + "\"");
  return false;
}

}  // namespace test_support
