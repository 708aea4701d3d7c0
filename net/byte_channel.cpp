#include "net/byte_channel.h"

#include "net/socket_errors.h"

namespace kelvado {

std::string ioFailureText(const IoStatus& status) {
  if (status.aborted) return "aborted by the application";
  if (status.timedOut) return "timed out";
  if (!status.problem.empty()) return status.problem;
  if (status.peerClosed) return "connection closed by the server";
  return socketErrorWords(status.error);
}

bool ByteChannel::readUntilMatch(std::string_view delimiter, std::string& out,
                                 const ReadLimits& limits, Call& call) {
  out.clear();
  status_ = {};
  std::size_t searchFrom = 0;
  for (;;) {
    const std::size_t at = received_.find(delimiter, searchFrom);
    const bool found = at != std::string::npos;
    const std::size_t end = found ? at + delimiter.size() : received_.size();
    if (end > limits.maxBytes) {
      call.log.LogError("Received line is longer than allowed.");
      call.log.LogData("maxBytes", std::to_string(limits.maxBytes));
      return false;
    }
    if (found) {
      out.assign(received_, 0, end);
      received_.erase(0, end);
      return true;
    }
    searchFrom = received_.size() < delimiter.size() ? 0 : received_.size() - delimiter.size() + 1;
    if (limits.left.remaining() == 0) {
      logReadTimeout(limits.left, call);
      return false;
    }
    if (!receiveMore(received_, limits.left, call)) {
      if (status_.aborted) call.log.LogError(readAbortedText());
      return false;
    }
  }
}

bool ByteChannel::receiveBytes(std::string& out, const Countdown& left, Call& call) {
  out.clear();
  status_ = {};
  if (received_.empty() && !receiveMore(received_, left, call)) return false;
  out.swap(received_);
  return true;
}

void ByteChannel::logReadTimeout(const Countdown& left, Call& call) {
  status_.timedOut = true;
  call.log.LogError("Timeout waiting to read socket or accept connection");
  call.log.LogData("timeoutMs", std::to_string(left.total()));
}

}  // namespace kelvado
