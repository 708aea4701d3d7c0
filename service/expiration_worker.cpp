#include "service/expiration_worker.h"

#include <cstdio>

#include "base/text.h"
#include "config/settings_check.h"
#include "directory/domain_directory.h"
#include "notify/mail_settings.h"
#include "platform/system/files.h"
#include "service/expiration_run.h"

namespace service {

namespace {

// For the system's journal: the worker has nobody else to tell.
class FaultsOfAPass : public RunObserver {
 public:
  void problemFound(const std::string& problem) override { tell(problem); }

  void tellSummary(const RunSummary& summary) {
    if (!summary.directoryBound) {
      tell("could not bind to the domain: " + summary.directoryError.text);
    }
    if (summary.smtpFailure) {
      tell(std::string("not every mail was sent; the last failure is in ") +
           notify::kMailErrorFile);
    }
    if (summary.adminReportFailed) tell("the report was not mailed to the administrator");
    if (summary.fileReportFailed) tell("the report file could not be written");
  }

  static void tell(const std::string& fault) {
    std::fprintf(stderr, "pwLapseSvc: %s\n", base::loggableLine(fault).c_str());
  }
};

}  // namespace

void runForEver(platform::Host host, const ServiceValues& values) {
  FaultsOfAPass faults;
  ExpirationRun run(host, values, &faults);
  run.prepare();
  const std::uint32_t startDelay = run.startDelayMs();
  if (startDelay != 0) host.clock.sleep(startDelay);
  for (;;) {
    {
      // Not beside a pass by hand: both would write the same lists and logs.
      const platform::FileLock alone(directory::kDomainUsersFile);
      faults.tellSummary(run.pass());
    }
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
  for (const std::string& wrong : config::findWrongTypes(system_->host().registry)) {
    FaultsOfAPass::tell(wrong + ", and counts as 0");
  }
  return platform::kErrorSuccess;
}

void ExpirationWorker::run(const ServiceValues& values) {
  runForEver(system_->host(), values);
}

}  // namespace service
