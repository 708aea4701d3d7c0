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
  // `record` gets what is heard, too.
  PlainStream(platform::SocketHandle socket, std::string& record)
      : socket_(socket), record_(record) {}

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
    record_.append(chunk, count);
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
  std::string& record_;
};

}  // namespace

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
    socket_ = systemSockets().accept(listener_, error);
    if (socket_ == platform::kInvalidSocket) continue;
    const std::size_t number = record_.connections++;
    runScript(number < scripts_.size() ? scripts_[number] : "HANGUP");
    stream_.reset();
    systemSockets().close(socket_);
  }
}

void ScriptedSmtpServer::runScript(const std::string& script) {
  stream_ = std::make_unique<PlainStream>(socket_, record_.inTheClear);
  buffer_.clear();
  std::istringstream steps(script);
  for (std::string step; std::getline(steps, step, '|');) {
    const std::size_t colon = step.find(": ");
    const std::string text = colon == std::string::npos ? "" : step.substr(colon + 2);
    if (!runStep(step.substr(0, colon), text)) return;
  }
  readToTheEnd();
}

// False when the connection is at its end.
bool ScriptedSmtpServer::runStep(const std::string& verb, const std::string& text) {
  if (verb == "S") return stream_->write(text + "\r\n");
  if (verb == "C") return expectLine(text);
  if (verb == "DATA") return readUntil("\r\n.\r\n", record_.messages.emplace_back());
  if (verb == "TLS") return (stream_ = handshake_(socket_, text)) != nullptr;
  if (verb == "DRIP") {
    for (const char c : text + "\r\n") {
      // The pause ends early when the client says something or leaves.
      SocketError error = platform::kSocketOk;
      systemSockets().waitReadable(socket_, kDripMs, error);
      if (!stream_->write({&c, 1})) return false;
    }
    return true;
  }
  while (verb == "ENDLESS" && stream_->write(text)) continue;
  if (verb == "SILENCE") readToTheEnd();
  return false;  // HANGUP, or the client left
}

bool ScriptedSmtpServer::expectLine(const std::string& expected) {
  std::string heard;
  const bool alive = readUntil("\r\n", heard);
  const bool matches = expected.ends_with('*')
                           ? heard.starts_with(expected.substr(0, expected.size() - 1))
                           : heard == expected;
  if (alive && matches) return true;
  record_.surprises.push_back("expected \"" + expected + "\", got \"" + heard + "\"");
  return false;
}

// Up to `delimiter`, which is taken off; false when the client left before.
bool ScriptedSmtpServer::readUntil(const std::string& delimiter, std::string& text) {
  std::size_t at = 0;
  while ((at = buffer_.find(delimiter)) == std::string::npos) {
    if (!stream_->read(buffer_)) return false;
  }
  text = buffer_.substr(0, at);
  buffer_.erase(0, at + delimiter.size());
  return true;
}

void ScriptedSmtpServer::readToTheEnd() {
  while (stream_->read(buffer_)) continue;
}

}  // namespace test_support
