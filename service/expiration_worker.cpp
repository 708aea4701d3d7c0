#include "service/expiration_worker.h"

#include <cstdio>

#include "service/expiration_run.h"

namespace service {

void runForEver(platform::Host host, const ServiceValues& values) {
  ExpirationRun run(host, values, nullptr);
  run.prepare();
  const std::uint32_t startDelay = run.startDelayMs();
  if (startDelay != 0) host.clock.sleep(startDelay);
  for (;;) {
    run.pass();
    host.clock.sleep(run.sleepMs());
  }
}

platform::WinError ExpirationWorker::readValues(ServiceValues& values) {
  std::string error;
  system_ = platform::makeSystemHost({}, error);
  if (!system_) {
    std::fprintf(stderr, "pwLapseSvc: %s\n", error.c_str());
    return kErrorBadConfiguration;
  }
  values = readServiceValues(system_->host().registry);
  return platform::kErrorSuccess;
}

void ExpirationWorker::run(const ServiceValues& values) {
  runForEver(system_->host(), values);
}

}  // namespace service
