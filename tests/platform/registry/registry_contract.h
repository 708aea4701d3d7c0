// What every implementation of the registry must do: the tests are in registry_contract_test.cpp,
// an implementation joins by INSTANTIATE_TEST_SUITE_P.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "platform/registry/registry.h"
#include "tests/support/temp_dir.h"

namespace platform {

inline constexpr const char* kPath = "Software\\Kadro\\ContractTest";

struct RegistryImplementation {
  std::string name;
  std::function<std::unique_ptr<Registry>()> make;  // without the key kPath
};

class RegistryContract : public testing::TestWithParam<RegistryImplementation> {
 protected:
  std::unique_ptr<RegistryKey> create(const std::string& path) {
    std::unique_ptr<RegistryKey> key;
    EXPECT_EQ(registry_->createKey(path, key), kErrorSuccess);
    return key;
  }
  // Null when there is no such key.
  std::unique_ptr<RegistryKey> open(const std::string& path) {
    std::unique_ptr<RegistryKey> key;
    const bool opened = registry_->openKey(path, RegistryAccess::Query, key) == kErrorSuccess;
    EXPECT_EQ(opened, key != nullptr);
    return key;
  }
  test_support::TempDir directory_;
  std::unique_ptr<Registry> registry_ = GetParam().make();
};

}  // namespace platform
