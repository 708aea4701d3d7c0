// The service while it runs: its main routine, its control handler and its status reports.
//
// main runs on the service's main thread, handleControl on the dispatcher's, the work on the
// worker's. There are no locks; the flags are single values, and the only signal between threads is
// the stop event. Between pausing and resuming, this allocates nothing and prints nothing: the
// frozen worker may hold the lock of either. The object must outlive the dispatcher's call; the
// worker is neither waited for nor ended, so the process must end without the destructors that it
// relies on.
#pragma once

#include <atomic>
#include <cstdint>

#include "service/service_system.h"
#include "service/service_values.h"
#include "service/service_work.h"

namespace service {

class ServiceMain {
 public:
  // `work` is borrowed.
  ServiceMain(ServiceSystem system, ServiceWork& work) : system_(system), work_(work) {}

  // The service main routine: from registration to the stopped report.
  void main();
  void handleControl(platform::ServiceControlCode code);

 private:
  bool startUp();
  bool reportStatus(platform::ServiceState state, platform::WinError exitCode,
                    std::uint32_t serviceSpecificCode, std::uint32_t checkPoint,
                    std::uint32_t waitHint);
  bool report(platform::ServiceState state, std::uint32_t checkPoint, std::uint32_t waitHint);
  bool startWorker();
  void pauseWorker();
  void resumeWorker();
  void stop();
  void cleanUp(platform::WinError exitCode);
  void reportEnd(platform::WinError exitCode);

  ServiceSystem system_;
  ServiceWork& work_;
  ServiceValues values_;
  std::atomic<platform::ServiceHandle> statusHandle_{platform::kNoServiceHandle};
  std::atomic<platform::EventHandle> stopEvent_{platform::kNullHandle};
  std::atomic<platform::ThreadHandle> worker_{platform::kNullHandle};
  std::atomic<bool> running_{false};  // the worker exists, and no stop was asked for
  std::atomic<bool> paused_{false};
};

}  // namespace service
