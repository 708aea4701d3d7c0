#include "tests/support/scripted_smtp_server.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "tests/support/tls_server.h"

namespace test_support {
namespace {

using platform::SocketApi;
using platform::systemSockets;

constexpr std::uint32_t kSliceMs = 20;
constexpr std::uint32_t kDripMs = 5;

std::string unescape(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      out += text[i];
      continue;
    }
    const char c = text[++i];
    if (c == 'x' && i + 2 < text.size()) {
      out += static_cast<char>(std::strtol(text.substr(i + 1, 2).c_str(), nullptr, 16));
      i += 2;
    } else {
      out += c == 'r' ? '\r' : c == 'n' ? '\n' : c == '0' ? '\0' : c;
    }
  }
  return out;
}

}  // namespace

// One accepted socket; every wait ends when the server stops.
class ScriptedSmtpServer::Connection {
 public:
  Connection(ScriptedSmtpServer& server, platform::SocketHandle socket)
      : server_(server), socket_(socket) {}
  ~Connection() { systemSockets().close(socket_); }

  bool send(std::string_view bytes) {
    if (tls_ == nullptr) return sendRaw(bytes);
    std::string wire;
    tls_->write(bytes, wire);
    return sendRaw(wire);
  }

  bool startTls(TestCertificate certificate) {
    tls_ = std::make_unique<TlsServerStream>(certificate);
    while (!tls_->established()) {
      if (!readMore()) return false;
    }
    if (tls_->resumed()) ++server_.resumedSessions_;
    return true;
  }

  // Up to and including `delimiter`; false when the client left before.
  bool readUntil(const std::string& delimiter, std::string& text) {
    std::size_t at = 0;
    while ((at = buffer_.find(delimiter)) == std::string::npos) {
      if (!readMore()) return false;
    }
    text = buffer_.substr(0, at + delimiter.size());
    buffer_.erase(0, text.size());
    return true;
  }

  void readToTheEnd() {
    while (readMore()) buffer_.clear();
  }

  // A pause that ends early when the client says something or leaves.
  void pause(std::uint32_t ms) {
    platform::SocketError error = platform::kSocketOk;
    systemSockets().waitReadable(socket_, ms, error);
  }

 private:
  bool sendRaw(std::string_view bytes) {
    while (!bytes.empty() && !server_.stop_) {
      std::size_t count = 0;
      platform::SocketError error = systemSockets().send(socket_, bytes, count);
      bytes.remove_prefix(count);
      if (error == platform::kWsaWouldBlock) {
        systemSockets().waitWritable(socket_, kSliceMs, error);
      } else if (error != platform::kSocketOk) {
        return false;
      }
    }
    return !server_.stop_;
  }

  bool readMore() {
    while (!server_.stop_) {
      platform::SocketError error = platform::kSocketOk;
      if (systemSockets().waitReadable(socket_, kSliceMs, error) == SocketApi::Ready::TimedOut) {
        continue;
      }
      char chunk[16384];
      std::size_t count = 0;
      error = systemSockets().receive(socket_, chunk, sizeof chunk, count);
      if (error == platform::kWsaWouldBlock) continue;
      return error == platform::kSocketOk && count > 0 && take({chunk, count});
    }
    return false;
  }

  bool take(std::string_view bytes) {
    {
      const std::lock_guard<std::mutex> lock(server_.mutex_);
      server_.record_.wire.append(bytes);
    }
    if (tls_ == nullptr) {
      buffer_.append(bytes);
      return true;
    }
    std::string wire;
    const bool alive = tls_->feed(bytes, buffer_, wire);
    return sendRaw(wire) && alive;
  }

  ScriptedSmtpServer& server_;
  platform::SocketHandle socket_;
  std::string buffer_;
  std::unique_ptr<TlsServerStream> tls_;  // null: plain
};

ScriptedSmtpServer::ScriptedSmtpServer(std::vector<std::string> scripts)
    : scripts_(std::move(scripts)) {
  platform::SocketError error = platform::kSocketOk;
  listener_ = systemSockets().listenOnLoopback(port_, error);
  thread_ = std::thread([this] { serve(); });
}

ScriptedSmtpServer::~ScriptedSmtpServer() {
  stop_ = true;
  thread_.join();
  systemSockets().close(listener_);
}

void ScriptedSmtpServer::serve() {
  while (!stop_) {
    platform::SocketError error = platform::kSocketOk;
    if (systemSockets().waitReadable(listener_, kSliceMs, error) != SocketApi::Ready::Yes) continue;
    const platform::SocketHandle socket = systemSockets().accept(listener_, error);
    if (socket == platform::kInvalidSocket) continue;
    const std::size_t number = static_cast<std::size_t>(connections_++);
    runScript(socket, scripts_[std::min(number, scripts_.size() - 1)]);
    ++finished_;
  }
}

void ScriptedSmtpServer::runScript(platform::SocketHandle socket, const std::string& script) {
  Connection connection(*this, socket);
  std::istringstream steps(script);
  for (std::string step; std::getline(steps, step, '|');) {
    const std::size_t colon = step.find(": ");
    const std::string text = colon == std::string::npos ? "" : step.substr(colon + 2);
    if (!runStep(connection, step.substr(0, colon), text)) return;
  }
  connection.readToTheEnd();
}

// False when the connection is at its end.
bool ScriptedSmtpServer::runStep(Connection& connection, const std::string& verb,
                                 const std::string& text) {
  if (verb == "S") return connection.send(unescape(text) + "\r\n");
  if (verb == "RAW") return connection.send(unescape(text));
  if (verb == "C") return expectLine(connection, text);
  if (verb == "HANGUP") return false;
  if (verb == "DATA") {
    std::string message;
    if (!connection.readUntil("\r\n.\r\n", message)) return false;
    const std::lock_guard<std::mutex> lock(mutex_);
    record_.messages.push_back(message.substr(0, message.size() - 5));
  } else if (verb == "DRIP") {
    for (const char c : unescape(text) + "\r\n") {
      connection.pause(kDripMs);
      if (!connection.send({&c, 1})) return false;
    }
  } else if (verb == "ENDLESS") {
    const std::string line = unescape(text);
    while (connection.send(line)) continue;
    return false;
  } else if (verb == "TLS") {
    return connection.startTls(text == "trusted"      ? TestCertificate::Trusted
                               : text == "selfsigned" ? TestCertificate::SelfSigned
                                                      : TestCertificate::OtherHost);
  } else if (verb == "SILENCE") {
    connection.readToTheEnd();
    return false;
  }
  return true;
}

bool ScriptedSmtpServer::expectLine(Connection& connection, const std::string& expected) {
  std::string heard;
  const bool alive = connection.readUntil("\r\n", heard);
  if (alive) heard.resize(heard.size() - 2);
  const bool open = !expected.empty() && expected.back() == '*';
  const bool matches =
      open ? heard.compare(0, expected.size() - 1, expected, 0, expected.size() - 1) == 0
           : heard == expected;
  const std::lock_guard<std::mutex> lock(mutex_);
  if (alive && matches) return true;
  record_.surprises.push_back("expected \"" + expected + "\", got \"" + heard + "\"");
  return false;
}

ScriptedSmtpServer::Record ScriptedSmtpServer::record() {
  while (finished_ < connections_) std::this_thread::yield();
  const std::lock_guard<std::mutex> lock(mutex_);
  return record_;
}

}  // namespace test_support
