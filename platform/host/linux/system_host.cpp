// The host of Linux: a ".reg" file as the registry, and the directory that its settings
// name.
#include "platform/host/system_host.h"

#include <utility>

#include "platform/directory/directory_settings.h"
#include "platform/directory/ldap/ldap_source.h"
#include "platform/directory/ldif/ldif_source.h"
#include "platform/directory/snapshot_directory.h"
#include "platform/directory/unusable_source.h"
#include "platform/registry/file/reg_registry.h"
#include "platform/registry/file/system_reg_registry.h"
#include "platform/system/clock.h"
#include "platform/system/files.h"

namespace platform {
namespace {

constexpr const char* kDefaultRegistryFile = "/etc/pwlapse/registry.reg";
// Where the package is installed, it makes this folder for the service's user, who may not write to
// /etc/pwlapse.
constexpr const char* kServiceFolder = "/var/lib/pwlapse";
constexpr const char* kWrittenRegistryFile = "/var/lib/pwlapse/written.reg";

class FileSystemHost final : public SystemHost {
 public:
  FileSystemHost(std::unique_ptr<Registry> registry, std::unique_ptr<DirectorySource> source)
      : registry_(std::move(registry)), directory_(std::move(source), systemClock()) {}

  Host host() override { return {*registry_, directory_, directory_, systemClock()}; }

 private:
  std::unique_ptr<Registry> registry_;
  SnapshotDirectory directory_;
};

std::unique_ptr<Registry> loadRegistry(const std::string& file, std::string& error) {
  if (!file.empty() && file != kDefaultRegistryFile) return RegRegistry::load(file, error);
  if (!fileExists(kServiceFolder)) return RegRegistry::load(kDefaultRegistryFile, error);
  return SystemRegRegistry::load(kDefaultRegistryFile, kWrittenRegistryFile, error);
}

std::unique_ptr<DirectorySource> sourceOf(const DirectorySettings& settings) {
  if (!settings.ldifFile.empty()) return std::make_unique<LdifSource>(settings.ldifFile);
  return std::make_unique<LdapSource>(settings.ldap, systemClock());
}

}  // namespace

std::unique_ptr<SystemHost> makeSystemHost(const HostOptions& options, std::string& error) {
  std::unique_ptr<Registry> registry = loadRegistry(options.registryFile, error);
  if (registry == nullptr) return nullptr;
  if (options.registryIsKept) {
    registry = std::make_unique<OverlayRegistry>(std::move(registry), options.givenValues);
  }
  DirectorySettings settings;
  if (!readDirectorySettings(*registry, options.directoryUri, ServedDirectories::LdapAndLdif,
                             settings, error)) {
    if (!options.directoryMayBeUnusable) return nullptr;
    return std::make_unique<FileSystemHost>(std::move(registry),
                                            std::make_unique<UnusableSource>(std::move(error)));
  }
  return std::make_unique<FileSystemHost>(std::move(registry), sourceOf(settings));
}

std::string servedDirectoryAddresses() {
  return "ldap://, ldaps://, ldapi://, ldif:PATH";
}

bool servesLdap() {
  return true;
}

std::string defaultRegistryName() {
  return kDefaultRegistryFile;
}

}  // namespace platform
