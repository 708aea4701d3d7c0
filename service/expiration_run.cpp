#include "service/expiration_run.h"

#include <algorithm>

#include "base/timestamp.h"
#include "config/pass_files.h"
#include "notify/run_report.h"
#include "platform/system/files.h"
#include "service/metrics.h"

namespace service {
namespace {

// A service started at boot waits a little under eight minutes.
constexpr double kStartWaitMs = 480000;
constexpr std::uint32_t kMsPerSecond = 1000;

constexpr std::int64_t kFileTimePerSecond = 10'000'000;
constexpr std::int64_t kSecondsFrom1601To1970 = 11'644'473'600;

std::int64_t unixSeconds(platform::Clock& clock) {
  return clock.fileTime() / kFileTimePerSecond - kSecondsFrom1601To1970;
}

// What the clock on the wall showed or will show then.
std::int64_t wallSecondsAt(platform::Clock& clock, std::int64_t unixSeconds) {
  return base::wallSeconds(
      clock.localTimeOf((unixSeconds + kSecondsFrom1601To1970) * kFileTimePerSecond));
}

}  // namespace

std::string lockFailure() {
  return "no pass is made without the lock of its folder: " +
         platform::absolutePath(config::kDomainUsersFile) + ".lock: " + platform::fileErrorText();
}

void ExpirationRun::prepare() {
  notify::writeReportLogo();
  context_.edition = findEditionKeys(context_.host.registry);
  if (context_.edition.memberServer) context_.log.print("**We have NRV-MPEMS version**\n");
  context_.uptimeSeconds = context_.host.clock.uptimeSeconds();
}

std::uint32_t ExpirationRun::startDelayMs() const {
  if (context_.uptimeSeconds * kMsPerSecond >= kStartWaitMs) return 0;
  // Milliseconds less seconds, on purpose: nearly the whole wait for any service started at boot.
  return static_cast<std::uint32_t>(kStartWaitMs - context_.uptimeSeconds);
}

void ExpirationRun::repeat() {
  repeats_ = true;
  const std::optional<PassTimes> times = passTimes();
  if (!times) return;
  std::optional<std::int64_t> lastBegan;
  std::string reason;  // without a record of a pass none was made
  if (const std::optional<LastRun> last = readLastRun(reason)) {
    lastBegan = wallSecondsAt(context_.host.clock, last->began);
  }
  schedule_.start(*times, lastBegan, base::wallSeconds(context_.host.clock.localTime()));
}

PassRecord ExpirationRun::pass() {
  schedule_.passBegan(base::wallSeconds(context_.host.clock.localTime()));
  PassRecord record = Pass(context_).make();
  leaveRecord(record);
  return record;
}

// Of a pass that follows on one that ended then, as LastRun has times.
std::int64_t ExpirationRun::nextBegin(std::int64_t ended,
                                      const config::ExpirationSettings& settings) const {
  const std::optional<PassTimes> times = passTimes(settings);
  if (!times) return ended + sleepMs(settings) / kMsPerSecond;
  const std::int64_t left = secondsToPass(*times);
  const std::int64_t reading = base::wallSeconds(context_.host.clock.localTime()) + left;
  // Where the clock changes in between, that many seconds later it shows another time.
  return ended + left + reading - wallSecondsAt(context_.host.clock, ended + left);
}

// A new lastSuccess_ counts from the next pass on: this one may yet get a problem.
LastRun ExpirationRun::describe(const PassRecord& record,
                                const config::ExpirationSettings& settings) const {
  LastRun run = lastRunOf(record, unixSeconds(context_.host.clock));
  if (repeats_) run.next = nextBegin(run.ended, settings);
  if (!run.lastSuccess) run.lastSuccess = lastSuccess_;
  return run;
}

// Without the folder of the logs the record is left out, as they are.
void ExpirationRun::leaveRecord(PassRecord& record) {
  std::string reason;
  // A pass by hand may have been all well since the last one of this run.
  if (const std::optional<LastRun> before = readLastRun(reason)) {
    lastSuccess_ = std::max(lastSuccess_, before->lastSuccess);
  }
  const config::ExpirationSettings settings = currentSettings();
  const std::string& metricsFile = settings.metricsFile;
  LastRun run = describe(record, settings);
  if (!metricsFile.empty() && !platform::replaceFileAtomically(metricsFile, metricsText(run),
                                                               platform::FileReaders::Everybody)) {
    record.findings.problem("metricsFile " + metricsFile +
                            " could not be written: " + platform::fileErrorText());
    run = describe(record, settings);
  }
  if (platform::fileExists(config::kLogDirectory) && !writeLastRun(run)) {
    record.findings.problem(
        std::string(config::kLastRunFile) +
        " could not be written, so pwlapse status does not know of this pass: " +
        platform::fileErrorText());
  }
  lastSuccess_ = run.lastSuccess;
}

config::ExpirationSettings ExpirationRun::currentSettings() const {
  return config::loadExpirationSettings(context_.host.registry, context_.edition.settingsKey);
}

std::uint32_t ExpirationRun::sleepMs(const config::ExpirationSettings& settings) const {
  return settings.expirationDelay == 0 ? context_.values.intervalMs
                                       : asMs(settings.expirationDelay, kMsPerSecond);
}

std::int64_t ExpirationRun::secondsToPass(const PassTimes& times) const {
  const std::int64_t now = base::wallSeconds(context_.host.clock.localTime());
  return schedule_.nextBegin(times, now) - now;
}

std::optional<PassTimes> ExpirationRun::passTimes(
    const config::ExpirationSettings& settings) const {
  const std::optional<int> first = base::secondOfDay(settings.expirationServiceTime);
  if (!first) return {};
  return PassTimes{*first, std::max(sleepMs(settings) / kMsPerSecond, 1U)};
}

}  // namespace service
