#include <cstdio>
#include <memory>

#include "config/pass_files.h"
#include "config/settings_check.h"
#include "console/commands.h"
#include "console/pass_watcher.h"
#include "directory/domain_directory.h"
#include "notify/run_logs.h"
#include "platform/host/system_host.h"
#include "platform/system/files.h"
#include "platform/system/stop_signals.h"
#include "platform/system/terminal.h"
#include "service/expiration_run.h"

namespace console {

int refuse(const std::string& reason) {
  std::fprintf(stderr, "pwlapse: %s\n", reason.c_str());
  return kExitUnusable;
}

int runCommand(const RunOptions& options) {
  if (options.dryRun) return dryRunCommand(options);
  // Before the work directory is entered: the registry's name is relative to where the user is.
  platform::HostOptions hostOptions{options.registryFile, options.directoryUri};
  if (!options.registryFile.empty()) {
    hostOptions.registryFile = platform::absolutePath(options.registryFile);
  }
  std::string error;
  const std::unique_ptr<platform::SystemHost> system = platform::makeSystemHost(hostOptions, error);
  if (!system) return refuse(error);
  if (!enterWorkDir(options.workDir, &system->host().registry, error)) return refuse(error);
  // The lists and logs of a pass are files in here.
  const platform::FileLock alone(config::kDomainUsersFile, platform::FileLock::Wait::No);
  if (alone.isTaken()) return refuse("another pass is at work in this folder");
  if (!alone.held()) return refuse(service::lockFailure());
  platform::Host host = system->host();
  const std::vector<config::SettingMistake> wrongTypes = config::findWrongTypes(host.registry);
  if (!wrongTypes.empty()) return refuse(wrongTypes.front().text());
  service::ServiceValues values = service::readServiceValues(host.registry);
  values.debug = values.debug || options.debug;
  // A pass makes the folder with debug on only; whoever runs one by hand wants the report and logs.
  platform::createDirectory(config::kLogDirectory);

  PassWatcher watcher(PassWatcher::Keep::Nothing, platform::isTerminal(stderr) ? stderr : nullptr);
  service::ExpirationRun run(host, values, &watcher, nullptr);
  const platform::StopSignals stopSignals;
  run.stopWhen(&platform::StopSignals::requested);
  run.prepare();
  const service::PassRecord record = run.pass();
  watcher.finish();
  std::fputs(service::summaryText(record).c_str(), stdout);
  return record.allWell() ? kExitDone : kExitSomethingFailed;
}

}  // namespace console
