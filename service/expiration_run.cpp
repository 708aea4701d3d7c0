#include "service/expiration_run.h"

#include "config/pass_files.h"
#include "notify/run_report.h"
#include "platform/system/files.h"

namespace service {
namespace {

// A service started at boot waits a little under eight minutes.
constexpr double kStartWaitMs = 480000;
constexpr std::uint32_t kMsPerSecond = 1000;

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

std::uint32_t ExpirationRun::sleepMs() const {
  const std::uint32_t delaySeconds =
      config::loadExpirationSettings(context_.host.registry, context_.edition.settingsKey)
          .expirationDelay;
  return delaySeconds == 0 ? context_.values.intervalMs : asMs(delaySeconds, kMsPerSecond);
}

}  // namespace service
