// Progress and abort: the sink that an application may hand to a send, and the monitor that sockets
// and sessions consult while they work. One monitor serves one call, on the caller's thread. The
// flag that aborts everything is the process's, see setAbortAll.
#pragma once

#include <cstdint>

#include "platform/system/clock.h"

namespace kelvado {

// Derive from it to watch a send. Both are called on the thread that called the library; setting
// `abort` ends the operation at the next opportunity.
class KvProgress {
 public:
  virtual ~KvProgress() = default;
  // Called only when the percentage rose above the last one reported, and once with 100 at the end.
  virtual void PercentDone(int /*percent*/, bool& /*abort*/) {}
  // Called every HeartbeatMs milliseconds.
  virtual void AbortCheck(bool& /*abort*/) {}
};

// Aborts everything in the process until it is set back: tested before connecting and before
// sending. One flag for the whole process; may be set from any thread.
void setAbortAll(bool abort);
bool abortAllRequested();

class ProgressMonitor {
 public:
  // `sink` may be null and must outlive the monitor. heartbeatMs 0: the abort check is never asked.
  explicit ProgressMonitor(KvProgress* sink = nullptr, std::uint32_t heartbeatMs = 0,
                           platform::Clock& clock = platform::systemClock());

  void expect(std::uint64_t totalUnits) { total_ = totalUnits; }
  void consume(std::uint64_t units);  // reports the percentage when it rose; at most 99
  void finish();                      // reports 100

  // Asks the sink when a heartbeat is due. True once the sink asked for an abort.
  bool abortCheck();
  bool aborted() const { return aborted_; }

  // How long a wait may last until the sink must be asked again; `remainingMs` without a sink.
  std::uint32_t sliceMs(std::uint32_t remainingMs) const;

  platform::Clock& clock() const { return clock_; }

 private:
  void report(int percent);

  KvProgress* sink_;
  std::uint32_t heartbeatMs_;
  platform::Clock& clock_;
  std::uint32_t lastBeat_;
  std::uint64_t total_ = 0;
  std::uint64_t done_ = 0;
  int reported_ = 0;
  bool aborted_ = false;
};

// A time-out that began when this was made. All times in milliseconds; the tick count may wrap
// meanwhile.
class Countdown {
 public:
  Countdown(std::uint32_t totalMs, platform::Clock& clock)
      : clock_(clock), start_(clock.tickCount()), total_(totalMs) {}
  std::uint32_t total() const { return total_; }
  std::uint32_t remaining() const {
    const std::uint32_t gone = clock_.tickCount() - start_;
    return gone >= total_ ? 0 : total_ - gone;
  }

 private:
  platform::Clock& clock_;
  std::uint32_t start_;
  std::uint32_t total_;
};

}  // namespace kelvado
