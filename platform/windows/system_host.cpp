// The host of a Windows machine: its registry, the domain by ADSI and the network management
// functions. Either can be replaced by a file.
#include "platform/system_host.h"

#include <string_view>
#include <utility>

#include "platform/file/ldif_source.h"
#include "platform/file/reg_registry.h"
#include "platform/file/snapshot_directory.h"
#include "platform/files.h"
#include "platform/windows/adsi_directory.h"
#include "platform/windows/system_accounts.h"
#include "platform/windows/system_registry.h"

namespace platform {
namespace {

constexpr const char* kDirectoryKey = "Software\\Kadro\\PwsentryPro\\Directory";
constexpr const char* kUriValue = "uri";
constexpr std::size_t kMaxUriBytes = 8192;
constexpr std::string_view kLdifScheme = "ldif:";

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
  std::vector<std::string> directoryWarnings() const override {
    return snapshot_ ? snapshot_->warnings() : std::vector<std::string>();
  }

 private:
  std::unique_ptr<Registry> registry_;
  std::unique_ptr<SnapshotDirectory> snapshot_;  // when the directory is a file
  std::unique_ptr<DirectoryAccess> directory_;   // otherwise
  std::unique_ptr<AccountDatabase> accounts_;
};

// Where the registry says the directory is; empty when it says nothing.
std::string configuredUri(Registry& registry) {
  std::unique_ptr<RegistryKey> key;
  RegistryValue value;
  if (registry.openKey(kDirectoryKey, RegistryAccess::Query, key) != kErrorSuccess ||
      key->queryValue(kUriValue, kMaxUriBytes, value) != kErrorSuccess ||
      value.type != RegistryType::String) {
    return {};
  }
  return value.bytes.substr(0, value.bytes.find('\0'));
}

}  // namespace

std::unique_ptr<SystemHost> makeSystemHost(const HostOptions& options, std::string& error) {
  std::unique_ptr<Registry> registry;
  if (options.registryFile.empty()) {
    registry = makeSystemRegistry();
  } else {
    registry = RegRegistry::load(options.registryFile, error);
    if (!registry) return nullptr;
  }
  const std::string uri =
      options.directoryUri.empty() ? configuredUri(*registry) : options.directoryUri;
  if (uri.empty()) return std::make_unique<WindowsHost>(std::move(registry));
  if (!uri.starts_with(kLdifScheme)) {
    error = "directory \"" + uri +
            "\": on Windows the directory is the machine's own domain, or ldif:PATH";
    return nullptr;
  }
  auto source = std::make_unique<LdifSource>(absolutePath(uri.substr(kLdifScheme.size())));
  return std::make_unique<WindowsHost>(std::move(registry), std::move(source));
}

std::string defaultRegistryName() {
  return "the registry of Windows (HKEY_LOCAL_MACHINE)";
}

}  // namespace platform
