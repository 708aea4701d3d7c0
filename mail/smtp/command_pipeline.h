// The commands of one transaction and their replies, which come in the same order. To a server that
// offers PIPELINING (RFC 2920) the commands go out in groups, ahead of their replies; to any other
// one by one. Used by SmtpTransaction.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "mail/smtp/smtp_wire.h"

namespace kelvado {

class CommandPipeline {
 public:
  CommandPipeline(SmtpWire& wire, bool pipelining, Call& call)
      : wire_(wire), groupSize_(pipelining ? kMaxAhead : 1), call_(call) {}

  // One line; CR LF is added.
  void add(std::string command) { commands_.push_back(std::move(command)); }

  // Sends the first command, or group, for the caller to do something else while the server is at
  // work on it. next() is to be called nevertheless.
  void start() { hasFailed_ = !sendGroup(); }
  // Sends the next command, unless that was done ahead, and reads its reply. True when that is 250;
  // false also when it could not be sent.
  bool next();
  // Whether the command of the last next() went out.
  bool sent() const { return taken_ <= sent_; }
  // Whether there are commands ahead of the last next() whose replies will come.
  bool isAhead() const { return taken_ < sent_; }
  // Reads the replies to the commands ahead, which no longer matter. Closes the connection when
  // they do not come.
  void skipAhead();

 private:
  // Small enough for the buffers of both sides, so that neither waits for the other for ever.
  static constexpr std::size_t kMaxAhead = 50;

  bool sendGroup();

  SmtpWire& wire_;
  std::size_t groupSize_;
  Call& call_;
  std::vector<std::string> commands_;
  std::size_t sent_ = 0;
  std::size_t taken_ = 0;
  bool hasFailed_ = false;  // to start
};

}  // namespace kelvado
