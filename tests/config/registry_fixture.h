// A registry file of one key for the tests of this folder.
#pragma once

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "platform/registry/file/reg_registry.h"
#include "platform/system/files.h"
#include "tests/support/temp_dir.h"

namespace config {

class RegistryFixture : public testing::Test {
 protected:
  // `lines` are the values of `key` as a registry file has them.
  platform::Registry& registryWith(const std::string& key, const std::string& lines) {
    platform::writeWholeFile("site.reg",
                             "Windows Registry Editor Version 5.00\n"
                             "[HKEY_LOCAL_MACHINE\\" +
                                 key + "]\n" + lines);
    std::string error;
    registry_ = platform::RegRegistry::load("site.reg", error);
    EXPECT_NE(registry_, nullptr) << error;
    return *registry_;
  }

 private:
  test_support::TempDir directory_;
  std::unique_ptr<platform::RegRegistry> registry_;
};

}  // namespace config
