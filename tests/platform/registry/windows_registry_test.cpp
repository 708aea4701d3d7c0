// The operating system's own registry under the contract.
#include <windows.h>

#include "platform/registry/windows/system_registry.h"
#include "tests/platform/registry/registry_contract.h"

namespace platform {
namespace {

// Leaves the system as it was found.
class ScratchRegistry final : public Registry {
 public:
  ScratchRegistry() { RegDeleteTreeA(HKEY_LOCAL_MACHINE, kPath); }
  ~ScratchRegistry() override { RegDeleteTreeA(HKEY_LOCAL_MACHINE, kPath); }

  WinError openKey(const std::string& path, RegistryAccess access,
                   std::unique_ptr<RegistryKey>& key) override {
    return registry_->openKey(path, access, key);
  }
  WinError createKey(const std::string& path, std::unique_ptr<RegistryKey>& key) override {
    return registry_->createKey(path, key);
  }
  KeyNames list(const std::string& path) override { return registry_->list(path); }

 private:
  std::unique_ptr<Registry> registry_ = makeSystemRegistry();
};

INSTANTIATE_TEST_SUITE_P(System, RegistryContract,
                         testing::Values(RegistryImplementation{
                             "Windows", [] { return std::make_unique<ScratchRegistry>(); }}),
                         [](const auto& implementation) { return implementation.param.name; });

}  // namespace
}  // namespace platform
