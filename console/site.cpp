#include "console/site.h"

#include <utility>

#include "config/given_settings.h"
#include "platform/system/files.h"
#include "service/service_values.h"

namespace console {

std::unique_ptr<platform::SystemHost> openHost(const SiteOptions& options, std::string& error) {
  platform::HostOptions host{options.registryFile, options.directoryUri};
  if (!host.registryFile.empty()) host.registryFile = platform::absolutePath(host.registryFile);
  host.registryIsKept = true;
  host.directoryMayBeUnusable = options.directoryMayBeUnusable;
  for (const std::string& setting : options.settings) {
    if (config::readGivenSetting(setting, host.givenValues, error)) continue;
    error.insert(0, "--set: ");
    return nullptr;
  }
  return platform::makeSystemHost(host, error);
}

bool enterWorkDir(const std::string& workDir, platform::Registry* registry, std::string& error) {
  std::string folder = workDir;
  if (folder.empty() && registry != nullptr) {
    folder = service::readServiceValues(*registry).workFolder;
  }
  if (folder.empty() || platform::setWorkingDirectory(folder)) return true;
  error = "cannot use the work directory " + folder;
  return false;
}

std::unique_ptr<platform::SystemHost> openSite(const SiteOptions& options, std::string& error) {
  std::unique_ptr<platform::SystemHost> host = openHost(options, error);
  return host && enterWorkDir(options.workDir, &host->host().registry, error) ? std::move(host)
                                                                              : nullptr;
}

}  // namespace console
