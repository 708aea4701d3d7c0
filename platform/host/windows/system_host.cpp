// The host of a Windows machine: its registry, the domain by ADSI and the network management
// functions. Either can be replaced by a file.
#include "platform/host/system_host.h"

#include <utility>

#include "platform/directory/adsi/adsi_directory.h"
#include "platform/directory/adsi/system_accounts.h"
#include "platform/directory/directory_settings.h"
#include "platform/directory/ldif/ldif_source.h"
#include "platform/directory/snapshot_directory.h"
#include "platform/directory/unusable_source.h"
#include "platform/registry/file/reg_registry.h"
#include "platform/registry/windows/system_registry.h"

namespace platform {
namespace {

class WindowsHost final : public SystemHost {
 public:
  explicit WindowsHost(std::unique_ptr<Registry> registry)
      : registry_(std::move(registry)),
        directory_(makeAdsiDirectory()),
        accounts_(makeSystemAccounts()) {}
  WindowsHost(std::unique_ptr<Registry> registry, std::unique_ptr<DirectorySource> source)
      : registry_(std::move(registry)),
        snapshot_(std::make_unique<SnapshotDirectory>(std::move(source), systemClock())) {}

  Host host() override {
    if (snapshot_) return {*registry_, *snapshot_, *snapshot_, systemClock()};
    return {*registry_, *accounts_, *directory_, systemClock()};
  }

 private:
  std::unique_ptr<Registry> registry_;
  std::unique_ptr<SnapshotDirectory> snapshot_;  // when the directory is a file
  std::unique_ptr<DirectoryAccess> directory_;   // otherwise
  std::unique_ptr<AccountDatabase> accounts_;
};

}  // namespace

std::unique_ptr<SystemHost> makeSystemHost(const HostOptions& options, std::string& error) {
  std::unique_ptr<Registry> registry;
  if (options.registryFile.empty()) {
    registry = makeSystemRegistry();
  } else {
    registry = RegRegistry::load(options.registryFile, error);
    if (!registry) return nullptr;
  }
  if (options.registryIsKept) {
    registry = std::make_unique<OverlayRegistry>(std::move(registry), options.givenValues);
  }
  DirectorySettings settings;
  if (!readDirectorySettings(*registry, options.directoryUri, ServedDirectories::OnlyLdif, settings,
                             error)) {
    if (!options.directoryMayBeUnusable) return nullptr;
    return std::make_unique<WindowsHost>(std::move(registry),
                                         std::make_unique<UnusableSource>(std::move(error)));
  }
  if (settings.ldifFile.empty()) return std::make_unique<WindowsHost>(std::move(registry));
  return std::make_unique<WindowsHost>(std::move(registry),
                                       std::make_unique<LdifSource>(settings.ldifFile));
}

std::string servedDirectoryAddresses() {
  return "ldif:PATH";
}

bool servesLdap() {
  return false;
}

std::string defaultRegistryName() {
  return "the registry of Windows (HKEY_LOCAL_MACHINE)";
}

}  // namespace platform
