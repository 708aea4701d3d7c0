// An SMTP server on loopback that says what its script tells it to say and records what it hears.
// Runs in a thread of its own from construction to finish(); one connection after another, each
// with the next script; what comes behind the last one is hung up on.
//
// A script is a text of steps with '|' between them:
//   S: 220 ready       sends this and CR LF
//   C: EHLO *          this line comes ('*': any end); else that is recorded and it hangs up
//   DATA               reads a message up to its terminator and keeps it
//   DRIP: 250 ok       as S, byte by byte, each with a pause of some milliseconds
//   ENDLESS: 250-x     sends exactly this, again and again until the client leaves
//   SILENCE            reads on and says nothing more until the client leaves
//   TLS: trusted       the handshake with that certificate; what follows goes over TLS
//   HANGUP             closes the connection
// After the last step it waits for the client to leave.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/network/socket_api.h"

namespace test_support {

// The server's side of a connection; false when the connection is at its end.
class ServerStream {
 public:
  virtual ~ServerStream() = default;
  virtual bool read(std::string& heard) = 0;  // waits for bytes, and appends them
  virtual bool write(std::string_view bytes) = 0;
};

// Makes TLS of a connection, with the certificate of that name; null when the client does not.
using Handshake =
    std::function<std::unique_ptr<ServerStream>(platform::SocketHandle, const std::string&)>;

class ScriptedSmtpServer {
 public:
  explicit ScriptedSmtpServer(std::vector<std::string> scripts, Handshake handshake = {});
  ~ScriptedSmtpServer();
  ScriptedSmtpServer(const ScriptedSmtpServer&) = delete;
  ScriptedSmtpServer& operator=(const ScriptedSmtpServer&) = delete;

  std::uint16_t port() const { return port_; }

  struct Record {
    std::size_t connections = 0;
    std::vector<std::string> messages;   // between DATA and its terminator
    std::vector<std::string> surprises;  // "expected ..., got ..."
    std::string inTheClear;              // each byte received before TLS, on all connections
  };
  // Ends the server; waits until the clients have left, so that all they said is in.
  const Record& finish();

 private:
  void serve();
  void runScript(const std::string& script);
  bool runStep(const std::string& verb, const std::string& text);
  bool expectLine(const std::string& expected);
  bool readUntil(const std::string& delimiter, std::string& text);
  void readToTheEnd();

  std::vector<std::string> scripts_;
  Handshake handshake_;
  platform::SocketHandle listener_ = platform::kInvalidSocket;
  std::uint16_t port_ = 0;
  std::atomic<bool> stop_{false};
  // The thread's until it ends; the first three are of the connection that is open.
  platform::SocketHandle socket_ = platform::kInvalidSocket;
  std::unique_ptr<ServerStream> stream_;
  std::string buffer_;
  Record record_;
  std::thread thread_;
};

}  // namespace test_support
