#include "service/service_main.h"

#include <string>

#include "base/ascii.h"

namespace service {
namespace {

using platform::kErrorSuccess;
using platform::ServiceControlCode;
using platform::ServiceState;
using platform::WinError;

constexpr std::uint32_t kLongHintMs = 5000;
constexpr std::uint32_t kShortHintMs = 1000;

}  // namespace

void ServiceMain::main() {
  if (!startUp()) return;
  system_.threads.wait(stopEvent_);
  cleanUp(kErrorSuccess);
}

// False when something failed and the service has been reported stopped.
bool ServiceMain::startUp() {
  const auto fail = [this] {
    cleanUp(system_.process.lastError());
    return false;
  };
  statusHandle_ = system_.control.registerHandler(
      kDispatchName, [this](ServiceControlCode code) { handleControl(code); });
  if (statusHandle_ == platform::kNoServiceHandle) return fail();
  if (!report(ServiceState::StartPending, 1, kLongHintMs)) return fail();

  stopEvent_ = system_.threads.createEvent();
  if (stopEvent_ == platform::kNullHandle) return fail();
  if (!report(ServiceState::StartPending, 2, kShortHintMs)) return fail();

  const WinError read = work_.readValues(values_);
  if (read != kErrorSuccess) {
    cleanUp(read);
    return false;
  }
  if (!report(ServiceState::StartPending, 3, kLongHintMs) || !startWorker() ||
      !report(ServiceState::Running, 0, 0)) {
    return fail();
  }
  system_.control.reportEvent(platform::Event::ServiceStarted, "The service has started.");
  return true;
}

void ServiceMain::handleControl(ServiceControlCode code) {
  ServiceState state = ServiceState::None;  // what a control that is not taken is answered with
  switch (code) {
    case ServiceControlCode::Stop:
      report(ServiceState::StopPending, 1, kLongHintMs);
      stop();
      return;  // the main routine reports that it has stopped
    case ServiceControlCode::Pause:
      if (running_ && !paused_) {
        report(ServiceState::PausePending, 1, kShortHintMs);
        pauseWorker();
        state = ServiceState::Paused;
      }
      break;
    case ServiceControlCode::Continue:
      if (running_ && paused_) {
        report(ServiceState::ContinuePending, 1, kShortHintMs);
        resumeWorker();
        state = ServiceState::Running;
      }
      break;
    case ServiceControlCode::Interrogate:
      state = ServiceState::Running;  // while paused too
      break;
    case ServiceControlCode::Shutdown:
      return;  // the process ends with the machine
  }
  report(state, 0, 0);
}

// A status with neither an exit code nor an error.
bool ServiceMain::report(ServiceState state, std::uint32_t checkPoint, std::uint32_t waitHint) {
  return reportStatus(state, kErrorSuccess, 0, checkPoint, waitHint);
}

bool ServiceMain::reportStatus(ServiceState state, WinError exitCode,
                               std::uint32_t serviceSpecificCode, std::uint32_t checkPoint,
                               std::uint32_t waitHint) {
  platform::ServiceStatus status;
  status.state = state;
  status.controlsAccepted =
      state == ServiceState::StartPending
          ? 0
          : platform::kAcceptStop | platform::kAcceptPauseContinue | platform::kAcceptShutdown;
  status.exitCode = serviceSpecificCode != 0 ? platform::kErrorServiceSpecific : exitCode;
  status.serviceSpecificCode = serviceSpecificCode;
  status.checkPoint = checkPoint;
  status.waitHint = waitHint;
  const bool reported = system_.control.setStatus(statusHandle_, status);
  if (!reported) stop();
  return reported;
}

bool ServiceMain::startWorker() {
  worker_ = system_.threads.createThread([this] { work_.run(values_); });
  if (worker_ == platform::kNullHandle) return false;
  running_ = true;
  return true;
}

void ServiceMain::pauseWorker() {
  paused_ = true;
  system_.threads.suspend(worker_);
}

void ServiceMain::resumeWorker() {
  paused_ = false;
  system_.threads.resume(worker_);
}

void ServiceMain::stop() {
  running_ = false;
  system_.threads.setEvent(stopEvent_);
}

// Not while the worker is frozen: it may hold a lock that the event log takes. The service manager
// notes a stop itself.
void ServiceMain::reportEnd(WinError exitCode) {
  if (paused_) return;
  if (exitCode == kErrorSuccess) {
    system_.control.reportEvent(platform::Event::ServiceStopped, "The service has stopped.");
  } else {
    const std::string why = system_.process.errorMessage(exitCode);
    system_.control.reportEvent(platform::Event::ServiceFailed,
                                "The service has stopped: " + std::string(base::trimmed(why)) +
                                    " (error " + std::to_string(exitCode) + ")");
  }
}

void ServiceMain::cleanUp(WinError exitCode) {
  if (stopEvent_ != platform::kNullHandle) {
    system_.threads.closeEvent(stopEvent_.exchange(platform::kNullHandle));
  }
  if (statusHandle_ != platform::kNoServiceHandle) {
    reportEnd(exitCode);  // before the dispatcher hears it and ends the process
    reportStatus(ServiceState::Stopped, exitCode, 0, 0, 0);
  }
  if (worker_ != platform::kNullHandle) {
    system_.threads.closeThread(worker_.exchange(platform::kNullHandle));
  }
}

}  // namespace service
