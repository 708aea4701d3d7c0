#include "service/expiration_worker.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <optional>

#include "base/format_text.h"
#include "base/timestamp.h"
#include "config/editions.h"
#include "config/pass_files.h"
#include "directory/domain_directory.h"
#include "platform/service/service_control.h"
#include "platform/system/files.h"
#include "service/expiration_run.h"

namespace service {

namespace {

// A line of the journal, which is made of standard error.
void journal(const std::string& line) {
  std::fprintf(stderr, "pwLapseSvc: %s\n", line.c_str());
}

// The same as an event, for systems whose services have no standard error; `more` is what the
// journal has already.
void journal(platform::Event event, const std::string& line, const std::string& more = {}) {
  journal(line);
  platform::systemServiceControl().reportEvent(event, more.empty() ? line : line + "\n" + more);
}

// What is found goes to the system's journal while the pass is under way.
class JournalWriter : public PassObserver {
 public:
  void findingMade(config::FindingKind kind, config::Cause cause,
                   const std::string& line) override {
    const std::string text = config::findingLabel(kind) + (": " + line);
    switch (cause) {
      case config::Cause::Settings:
        return journal(platform::Event::SettingsWrong, text);
      case config::Cause::Directory:
        return journal(platform::Event::DirectoryFailed, text);
      case config::Cause::MailServer:
        return journal(platform::Event::MailServerFailed, text);
      case config::Cause::Other:
        return journal(text);  // as an event it is part of the pass's
    }
  }
};

// The clock is looked at again after so long: it may have been changed, or the machine suspended.
constexpr std::int64_t kLongestSleepSeconds = 60;
constexpr std::uint32_t kMsPerSecond = 1000;

std::string nextPassText(const ExpirationRun& run, platform::Clock& clock) {
  const std::optional<PassTimes> times = run.passTimes();
  if (!times) return "in " + spanText(run.sleepMs());
  const base::LocalTime next =
      base::fromWallSeconds(base::wallSeconds(clock.localTime()) + run.secondsToPass(*times));
  return base::formatText("at %02d:%02d on %04d-%02d-%02d", next.hour, next.minute, next.year,
                          next.month, next.day);
}

void awaitTime(const ExpirationRun& run, const PassTimes& times, platform::Clock& clock) {
  while (const std::int64_t left = run.secondsToPass(times)) {
    clock.sleep(static_cast<std::uint32_t>(std::min(left, kLongestSleepSeconds)) * kMsPerSecond);
  }
}

void makePass(ExpirationRun& run, platform::Clock& clock) {
  // Not beside a pass by hand: both would write the same lists and logs.
  const platform::FileLock alone(config::kDomainUsersFile);
  if (!alone.held()) {
    journal(platform::Event::PassLeftOut, "FAILED: " + lockFailure());
    return run.leaveOutPass();
  }
  const PassRecord record = run.pass();
  journal(record.allWell() ? platform::Event::PassWell : platform::Event::PassWithProblems,
          passLine(record) + "; the next pass is " + nextPassText(run, clock),
          findingsText(record.findings));
}

}  // namespace

void runForEver(platform::Host host, const ServiceValues& values) {
  JournalWriter journalWriter;
  ExpirationRun run(host, values, &journalWriter);
  run.prepare();
  const std::uint32_t startDelay = run.startDelayMs();
  if (startDelay != 0) host.clock.sleep(startDelay);
  run.repeat();
  for (;;) {
    if (const std::optional<PassTimes> times = run.passTimes()) awaitTime(run, *times, host.clock);
    makePass(run, host.clock);
    if (!run.passTimes()) host.clock.sleep(run.sleepMs());
  }
}

platform::WinError ExpirationWorker::readValues(ServiceValues& values) {
  std::string error;
  system_ = platform::makeSystemHost({}, error);
  if (!system_) {
    journal(platform::Event::SettingsWrong, error);
    return kErrorBadConfiguration;
  }
  values = readServiceValues(system_->host().registry);
  if (!values.workFolder.empty() && !platform::setWorkingDirectory(values.workFolder)) {
    journal(platform::Event::SettingsWrong, std::string(config::kWorkFolderValue) + ' ' +
                                                values.workFolder +
                                                " cannot be used: " + platform::fileErrorText());
    return kErrorBadConfiguration;
  }
  return platform::kErrorSuccess;
}

void ExpirationWorker::run(const ServiceValues& values) {
  runForEver(system_->host(), values);
}

}  // namespace service
