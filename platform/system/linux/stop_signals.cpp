#include "platform/system/stop_signals.h"

#include <csignal>

#include <signal.h>

namespace platform {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t stopRequested = 0;

}  // namespace

StopSignals::StopSignals() {
  stopRequested = 0;
  struct sigaction action {};
  action.sa_handler = [](int) { stopRequested = 1; };
  // Reset: the second one finds the system's own way, which ends the process.
  action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
  for (const int signal : kSignals) {
    struct sigaction before {};
    const bool ignored = ::sigaction(signal, nullptr, &before) == 0 && before.sa_handler == SIG_IGN;
    if (!ignored) ::sigaction(signal, &action, nullptr);  // nohup stays in force
  }
}

StopSignals::~StopSignals() {
  for (const int signal : kSignals) {
    struct sigaction current {};
    const bool ignored =
        ::sigaction(signal, nullptr, &current) == 0 && current.sa_handler == SIG_IGN;
    if (!ignored) std::signal(signal, SIG_DFL);
  }
}

bool StopSignals::requested() {
  return stopRequested != 0;
}

}  // namespace platform
