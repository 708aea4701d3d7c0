// The expiration run: the body of the worker thread. It prepares once and then passes over all
// users, again and again, with a sleep between two passes. Nothing that happens in a pass ends the
// run. One object per worker, used by that thread only.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <utility>

#include "service/pass.h"

namespace service {

// Why no pass is made when the lock of the work folder cannot be had; to be asked at once.
std::string lockFailure();

class ExpirationRun {
 public:
  // `observer` and `foundUsers` are borrowed, and may be null (see RunContext).
  ExpirationRun(platform::Host host, const ServiceValues& values, PassObserver* observer,
                std::FILE* foundUsers = stdout)
      : context_{host, values, observer, foundUsers, config::DebugLog(values.debug), {}} {}

  // Asked between two users whether the pass is to end after the one in hand.
  void stopWhen(std::function<bool()> requested) { context_.stopRequested = std::move(requested); }

  // Once, before the first pass: the logo file, the kind of machine, which edition's keys to use.
  void prepare();
  // How long a worker that has just started has yet to wait for the machine to have come up, in ms.
  std::uint32_t startDelayMs() const;
  // Blocks for as long as the directory and the mail server take.
  PassRecord pass() { return Pass(context_).make(); }
  // The time to sleep before the next pass, in ms.
  std::uint32_t sleepMs() const;

 private:
  RunContext context_;
};

}  // namespace service
