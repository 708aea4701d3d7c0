// `pwlapse settings`: which edition of the product this machine's registry sets up, and its
// switches.
#include <cstdio>
#include <memory>

#include "config/settings_dump.h"
#include "config/settings_loader.h"
#include "console/commands.h"
#include "platform/host/system_host.h"

namespace console {
namespace {

const char* machineText(const std::string& osType) {
  if (osType == "de") return "a workstation";
  if (osType == "ms") return "a member server";
  if (osType == "dc") return "a domain controller";
  return "a machine of a kind that the registry does not name (productType)";
}

}  // namespace

std::string registryName(const std::string& registryFile) {
  return registryFile.empty() ? platform::defaultRegistryName() : registryFile;
}

int settingsCommand(const SettingsOptions& options) {
  std::string error;
  const std::unique_ptr<platform::SystemHost> system =
      platform::makeSystemHost({options.registryFile, {}}, error);
  if (!system) return refuse(error);
  config::RegcodeLicenceCheck licences;
  config::ProductSettings settings;
  config::loadSettings(system->host().registry, licences, settings);

  std::printf("Registry: %s\n", registryName(options.registryFile).c_str());
  std::printf("Machine:  %s\n", machineText(settings.osType));
  std::printf("Edition:  %s\n",
              settings.version.empty() ? "none is licensed" : settings.version.c_str());
  std::printf("Key:      %s\n\n", settings.keyPath.empty()
                                      ? "none"
                                      : ("HKEY_LOCAL_MACHINE\\" + settings.keyPath).c_str());
  std::fputs(config::settingsDump(settings).c_str(), stdout);
  return kExitDone;
}

}  // namespace console
