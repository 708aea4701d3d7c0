// A connected stream of bytes as the mail session sees it: a plain socket, or TLS on top of one.
// Reading up to a delimiter is implemented here for both. Blocks the caller up to the time-outs
// given; used by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "net/call.h"
#include "platform/network/socket_api.h"

namespace kelvado {

// Why the last operation failed.
struct IoStatus {
  bool timedOut = false;
  bool aborted = false;
  bool peerClosed = false;
  platform::SocketError error = platform::kSocketOk;  // of the network
  std::string problem;                                // of TLS, in words; no secret
};

// The same in a few words for people: "connection refused", "timed out".
std::string ioFailureText(const IoStatus& status);

struct ReadLimits {
  const Countdown& left;  // for the whole read: a peer that drips bytes does not prolong it
  std::size_t maxBytes;   // the delimiter included
};

class ByteChannel {
 public:
  ByteChannel() = default;
  virtual ~ByteChannel() = default;
  ByteChannel(const ByteChannel&) = delete;
  ByteChannel& operator=(const ByteChannel&) = delete;

  virtual bool isConnected() const = 0;
  virtual void close() = 0;

  // All bytes, or failure. The time-out counts from the last progress.
  virtual bool sendBytes(std::string_view data, std::uint32_t idleTimeoutMs, Call& call) = 0;

  // `out`: the text up to and including the delimiter. What came after it is kept for the next
  // read.
  bool readUntilMatch(std::string_view delimiter, std::string& out, const ReadLimits& limits,
                      Call& call);

  // All bytes that have arrived, at least one: waits when there is none.
  bool receiveBytes(std::string& out, const Countdown& left, Call& call);

  // What was received and not read yet; it stays unread.
  std::string_view unreadBytes() const { return received_; }
  // Adds to the unread bytes what has arrived since and can be had without waiting. TLS: nothing.
  virtual void receiveArrived() {}

  const IoStatus& status() const { return status_; }

 protected:
  // Appends at least one byte to `buffer`, or logs why not and sets status_.
  virtual bool receiveMore(std::string& buffer, const Countdown& left, Call& call) = 0;
  // What readUntilMatch adds to the log after an abort by the application.
  virtual const char* readAbortedText() const = 0;

  void logReadTimeout(const Countdown& left, Call& call);

  IoStatus status_;
  std::string received_;
};

}  // namespace kelvado
