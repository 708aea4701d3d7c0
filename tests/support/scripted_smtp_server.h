// An SMTP server on loopback that says what its script tells it to say and records what it hears.
// Runs in a thread of its own from construction to destruction; one connection after another, each
// with the next script; the last script serves all further connections.
//
// A script is a text of steps with '|' between them:
//   S: 220 ready       sends this and CR LF; escapes \r \n \0 \\ \xNN
//   RAW: 250-x\r\n25   sends exactly these bytes; same escapes
//   C: EHLO *          expects this line ('*' at the end: anything more); else hangs up, and tells
//   DATA               reads a message up to its terminator and keeps it
//   DRIP: 250 ok       as S, byte by byte, each with a pause of some milliseconds
//   ENDLESS: 250-x     as RAW, again and again until the client leaves
//   SILENCE            reads on and says nothing more until the client leaves
//   TLS: trusted       the handshake, with the "trusted", the "selfsigned" or the "otherhost"
//                      certificate; what follows goes over TLS
//   HANGUP             closes the connection
// After the last step it waits for the client to leave.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/socket_api.h"

namespace test_support {

class ScriptedSmtpServer {
 public:
  explicit ScriptedSmtpServer(std::vector<std::string> scripts);
  ~ScriptedSmtpServer();
  ScriptedSmtpServer(const ScriptedSmtpServer&) = delete;
  ScriptedSmtpServer& operator=(const ScriptedSmtpServer&) = delete;

  std::uint16_t port() const { return port_; }

  // Waits until the connections that were made have ended, so that all they said is in.
  struct Record {
    std::vector<std::string> messages;   // between DATA and its terminator
    std::vector<std::string> surprises;  // "expected ..., got ..."
    std::string wire;                    // each byte received, on all connections
  };
  Record record();
  int connections() const { return connections_; }
  int resumedSessions() const { return resumedSessions_; }  // TLS ones

 private:
  class Connection;

  void serve();
  void runScript(platform::SocketHandle socket, const std::string& script);
  bool runStep(Connection& connection, const std::string& verb, const std::string& text);
  bool expectLine(Connection& connection, const std::string& expected);

  std::vector<std::string> scripts_;
  platform::SocketHandle listener_ = platform::kInvalidSocket;
  std::uint16_t port_ = 0;
  std::atomic<bool> stop_{false};
  std::atomic<int> connections_{0};
  std::atomic<int> finished_{0};
  std::atomic<int> resumedSessions_{0};
  std::mutex mutex_;  // guards record_
  Record record_;
  std::thread thread_;
};

}  // namespace test_support
