// The service's work: the expiration run, pass after pass, over the host of this machine.
#pragma once

#include <memory>

#include "platform/host/system_host.h"
#include "service/service_work.h"

namespace service {

// ERROR_BADDB: the service's exit code when the registry or a setting of the directory cannot be
// used.
inline constexpr platform::WinError kErrorBadConfiguration = 1009;

// The endless body of the worker thread: prepares a run, waits until the machine has been up for
// long enough, then passes and sleeps in turn: for the interval, or until the next time of day that
// the settings name. Returns only by what the clock's sleep throws, in tests.
void runForEver(platform::Host host, const ServiceValues& values);

class ExpirationWorker : public ServiceWork {
 public:
  // Makes the host; a fault goes to standard error, in one line.
  platform::WinError readValues(ServiceValues& values) override;
  void run(const ServiceValues& values) override;

 private:
  std::unique_ptr<platform::SystemHost> system_;
};

}  // namespace service
