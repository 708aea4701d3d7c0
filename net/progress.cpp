#include "net/progress.h"

#include <algorithm>
#include <atomic>

namespace kelvado {
namespace {

// Bounds of a wait slice in milliseconds: an abort takes effect within the longer one, and a very
// short heartbeat does not keep the processor busy.
constexpr std::uint32_t kMinSliceMs = 50;
constexpr std::uint32_t kMaxSliceMs = 250;

std::atomic<bool> abortAll{false};

}  // namespace

void setAbortAll(bool abort) {
  abortAll = abort;
}
bool abortAllRequested() {
  return abortAll;
}

ProgressMonitor::ProgressMonitor(KvProgress* sink, std::uint32_t heartbeatMs,
                                 platform::Clock& clock)
    : sink_(sink), heartbeatMs_(heartbeatMs), clock_(clock), lastBeat_(clock.tickCount()) {}

void ProgressMonitor::consume(std::uint64_t units) {
  done_ += units;
  if (sink_ == nullptr || total_ == 0) return;
  report(static_cast<int>(std::min<std::uint64_t>(99, done_ * 100 / total_)));
}

void ProgressMonitor::finish() {
  if (sink_ != nullptr) report(100);
}

void ProgressMonitor::report(int percent) {
  if (percent <= reported_) return;
  reported_ = percent;
  sink_->PercentDone(percent, aborted_);
}

bool ProgressMonitor::abortCheck() {
  if (aborted_ || sink_ == nullptr || heartbeatMs_ == 0) return aborted_;
  const std::uint32_t now = clock_.tickCount();
  if (now < lastBeat_) {  // the count wrapped or was set back: the interval starts again
    lastBeat_ = now;
  } else if (now - lastBeat_ >= heartbeatMs_) {
    lastBeat_ = now;
    sink_->AbortCheck(aborted_);
  }
  return aborted_;
}

std::uint32_t ProgressMonitor::sliceMs(std::uint32_t remainingMs) const {
  if (sink_ == nullptr || heartbeatMs_ == 0) return remainingMs;
  return std::min(remainingMs, std::clamp(heartbeatMs_, kMinSliceMs, kMaxSliceMs));
}

}  // namespace kelvado
