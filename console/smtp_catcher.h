// An SMTP server that accepts mail on loopback and saves it, for trying things out: the demo and
// `pwlapse catch`. It offers no TLS and no authentication, and delivers nothing anywhere.
// Runs in a thread of its own, and one for each client; the other members may be called from any
// thread. Every line, message and number of recipients has an upper bound; past one the client is
// refused (RFC 5321 section 4.5.3).
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/network/socket_api.h"

namespace console {

struct CatcherOptions {
  std::uint16_t port = 0;                      // 0 picks a free one
  std::string directory;                       // made when missing
  std::vector<std::string> refusedRecipients;  // answered with 550; letter case does not count
};

class SmtpCatcher {
 public:
  SmtpCatcher() = default;
  ~SmtpCatcher();  // stops
  SmtpCatcher(const SmtpCatcher&) = delete;
  SmtpCatcher& operator=(const SmtpCatcher&) = delete;

  // Listens and starts the thread. False, with `error` one line that names the port or the
  // directory.
  bool start(const CatcherOptions& options, std::string& error);
  // Ends the thread, in the middle of a conversation too; a mail not yet complete is not saved.
  void stop();

  std::uint16_t port() const { return port_; }
  // The mails saved so far, oldest first: "DIRECTORY/0001.eml". A file is there whole or not at
  // all.
  std::vector<std::string> savedFiles() const;

 private:
  void serve();
  void converse(platform::SocketHandle socket);
  void dismiss(platform::SocketHandle socket);
  bool sendAll(platform::SocketHandle socket, std::string_view bytes) const;
  bool save(const std::string& mail);

  CatcherOptions options_;
  std::uint16_t port_ = 0;
  platform::SocketHandle listener_ = platform::kInvalidSocket;
  std::atomic<bool> stop_{false};
  std::thread thread_;
  mutable std::mutex mutex_;  // guards the two below
  std::vector<std::string> savedFiles_;
  unsigned lastNumber_ = 0;
};

}  // namespace console
