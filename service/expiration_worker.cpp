#include "service/expiration_worker.h"

#include <cstdio>

#include "config/pass_files.h"
#include "directory/domain_directory.h"
#include "platform/system/files.h"
#include "service/expiration_run.h"

namespace service {

namespace {

void journal(const std::string& line) {
  std::fprintf(stderr, "pwLapseSvc: %s\n", line.c_str());
}

// What is found goes to the system's journal while the pass is under way.
class JournalWriter : public PassObserver {
 public:
  void findingMade(config::FindingKind kind, const std::string& line) override {
    journal(config::findingLabel(kind) + (": " + line));
  }
};

void makePass(ExpirationRun& run) {
  // Not beside a pass by hand: both would write the same lists and logs.
  const platform::FileLock alone(config::kDomainUsersFile);
  if (!alone.held()) return journal("FAILED: " + lockFailure());
  const PassRecord record = run.pass();
  journal(passLine(record) + "; the next pass is in " + spanText(run.sleepMs()));
}

}  // namespace

void runForEver(platform::Host host, const ServiceValues& values) {
  JournalWriter journalWriter;
  ExpirationRun run(host, values, &journalWriter);
  run.prepare();
  run.repeat();
  const std::uint32_t startDelay = run.startDelayMs();
  if (startDelay != 0) host.clock.sleep(startDelay);
  for (;;) {
    makePass(run);
    host.clock.sleep(run.sleepMs());
  }
}

platform::WinError ExpirationWorker::readValues(ServiceValues& values) {
  std::string error;
  system_ = platform::makeSystemHost({}, error);
  if (!system_) {
    journal(error);
    return kErrorBadConfiguration;
  }
  values = readServiceValues(system_->host().registry);
  return platform::kErrorSuccess;
}

void ExpirationWorker::run(const ServiceValues& values) {
  runForEver(system_->host(), values);
}

}  // namespace service
