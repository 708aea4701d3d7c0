// The registry over a file on disk: loading, following changes, and what a write does to the file.
#include "platform/registry/file/reg_registry.h"

#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/registry/file/system_reg_registry.h"
#include "platform/system/files.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_file.h"

namespace platform {
namespace {

using namespace std::string_literals;
using test_support::readBytes;

constexpr const char* kSite =
    "REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\Software\\Site]\n\"name\"=\"one\"\n";

std::string text(Registry& registry, const std::string& name) {
  std::unique_ptr<RegistryKey> key;
  RegistryValue value;
  if (registry.openKey("Software\\Site", RegistryAccess::Query, key) != kErrorSuccess ||
      key->queryValue(name, 100, value) != kErrorSuccess) {
    return "<missing>";
  }
  return value.bytes.c_str();
}

WinError setText(Registry& registry, const std::string& name, const std::string& value) {
  std::unique_ptr<RegistryKey> key;
  const WinError status = registry.openKey("Software\\Site", RegistryAccess::All, key);
  return status != kErrorSuccess ? status
                                 : key->setValue(name, {RegistryType::String, value + '\0'});
}

class RegRegistryTest : public testing::Test {
 protected:
  RegRegistryTest() { writeWholeFile("site.reg", kSite); }
  static std::unique_ptr<RegRegistry> load() {
    std::string error;
    auto registry = RegRegistry::load("site.reg", error);
    EXPECT_NE(registry, nullptr) << error;
    return registry;
  }
  test_support::TempDir directory_;
};

TEST_F(RegRegistryTest, FollowsTheFileAndLeavesItAloneWhileItIsWrong) {
  const auto registry = load();
  writeWholeFile("site.reg", kSite + "\"more\"=\"two\"\n"s);
  EXPECT_EQ(text(*registry, "more"), "two");

  const std::string wrong = kSite + "\"more\"=\"half wri"s;
  writeWholeFile("site.reg", wrong);
  EXPECT_EQ(text(*registry, "more"), "two");
  EXPECT_EQ(registry->lastError(), absolutePath("site.reg") + ":5: a text has no closing quote");
  EXPECT_EQ(setText(*registry, "name", "two"), kErrorWriteFault);
  EXPECT_EQ(readBytes("site.reg"), wrong);
  EXPECT_EQ(text(*registry, "name"), "one");

  writeWholeFile("site.reg", kSite);
  EXPECT_EQ(text(*registry, "more"), "<missing>");
  EXPECT_EQ(setText(*registry, "name\nwrong", "two"), kErrorWriteFault);  // no way to write it
  EXPECT_EQ(readBytes("site.reg"), kSite);
}

TEST_F(RegRegistryTest, AWriteKeepsWhatSomebodyElseWroteMeanwhile) {
  const auto registry = load();
  std::unique_ptr<RegistryKey> key;
  ASSERT_EQ(registry->openKey("Software\\Site", RegistryAccess::All, key), kErrorSuccess);
  writeWholeFile("site.reg", kSite + "; by hand\n"s);
  EXPECT_EQ(key->setValue("more", {RegistryType::String, "two\0"s}), kErrorSuccess);
  EXPECT_EQ(readBytes("site.reg"), kSite + "\"more\"=\"two\"\n; by hand\n"s);
  EXPECT_EQ(text(*registry, "more"), "two");
}

TEST_F(RegRegistryTest, WritersAtTheSameTimeLoseNothing) {
  std::vector<std::string> names;
  for (int i = 0; i < 20; ++i) names.push_back(std::to_string(i));
  const auto write = [&names](const std::string& who) {
    const auto registry = load();
    for (const auto& name : names) EXPECT_EQ(setText(*registry, who + name, "set"), kErrorSuccess);
  };
  std::thread other(write, "a");
  write("b");
  other.join();
  const auto registry = load();
  for (const auto& name : names) {
    EXPECT_EQ(text(*registry, "a" + name) + text(*registry, "b" + name), "setset");
  }
}

// The settings' file is not touched, whether a value is in it or not.
TEST_F(RegRegistryTest, WhatTheSystemsRegistryWritesIsInAFileOfItsOwn) {
  std::string error;
  auto registry = SystemRegRegistry::load("site.reg", "written.reg", error);
  ASSERT_NE(registry, nullptr) << error;
  EXPECT_FALSE(fileExists("written.reg"));
  EXPECT_EQ(setText(*registry, "name", "two") + setText(*registry, "day", "5"), kErrorSuccess);
  EXPECT_EQ(readBytes("site.reg"), kSite);
  EXPECT_EQ(readBytes("written.reg"),
            "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\Software\\Site]\r\n"
            "\"name\"=\"two\"\r\n\"day\"=\"5\"\r\n");
  writeWholeFile("site.reg", kSite + "\"more\"=\"seen\"\n"s);
  registry = SystemRegRegistry::load("site.reg", "written.reg", error);
  EXPECT_EQ(text(*registry, "name") + text(*registry, "day") + text(*registry, "more"), "two5seen");
  createDirectory("folder");
  for (const char* unreadable : {"folder", "site.reg/x"}) {
    EXPECT_EQ(SystemRegRegistry::load(unreadable, "written.reg", error), nullptr) << unreadable;
  }
  EXPECT_EQ(SystemRegRegistry::load("site.reg", "folder", error), nullptr);
}

TEST_F(RegRegistryTest, WhatAKilledWriteLeftIsRemovedUnlessAnotherIsAtWork) {
  const std::string left = absolutePath("site.reg") + ".aB3dE6.pwlapse-tmp";
  writeWholeFile(left, "secret");
  {
    const FileLock busy("site.reg");
    load();
    EXPECT_TRUE(fileExists(left));
  }
  load();
  EXPECT_FALSE(fileExists(left));
}

}  // namespace
}  // namespace platform
