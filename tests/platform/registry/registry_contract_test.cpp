#include "tests/platform/registry/registry_contract.h"

#include <memory>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "platform/registry/file/reg_registry.h"
#include "platform/registry/file/system_reg_registry.h"
#include "platform/system/files.h"
#include "platform/text/code_page.h"

namespace platform {
namespace {

using namespace std::string_literals;

TEST_P(RegistryContract, CreatesKeysWithAllAboveThemAndListsNamesAsTheyWereWritten) {
  EXPECT_EQ(open(kPath), nullptr);
  create(kPath + "\\One\\Two"s)->setValue("Name", {RegistryType::String, "x\0"s});
  create(kPath + "\\One\\Three"s);
  EXPECT_NE(open("SOFTWARE\\kadro\\contracttest\\ONE"), nullptr);
  EXPECT_EQ(open(kPath + "\\Two"s), nullptr);
  const KeyNames top = registry_->list("software\\kadro\\CONTRACTTEST");
  EXPECT_EQ(top.subkeys, std::vector<std::string>{"One"});
  EXPECT_TRUE(top.values.empty());
  EXPECT_EQ(registry_->list(kPath + "\\One"s).subkeys.size(), 2U);
  EXPECT_EQ(registry_->list(kPath + "\\One\\Two"s).values, std::vector<std::string>{"Name"});
  EXPECT_TRUE(registry_->list(kPath + "\\Two"s).subkeys.empty());
}

TEST_P(RegistryContract, GivesBackWhatWasSetIfThereIsRoomForIt) {
  const std::string umlaut = utf16ToAnsi(u"\u00FC");
  const std::pair<std::string, RegistryValue> cases[] = {
      {"", {RegistryType::String, "a \"b\" \\ c\0"s}},
      {"lines", {RegistryType::String, "one\r\ntwo\0"s}},
      {"expand " + umlaut, {RegistryType::ExpandString, "%A%" + umlaut + '\0'}},
      {"multi", {RegistryType::MultiString, "a\0b\0\0"s}},
      {"number", {RegistryType::Dword, "\1\2\3\4"}},
      {"binary", {RegistryType::Binary, "\0\xFF\x80"s}},
      {"empty", {RegistryType::Binary, ""}},
  };
  const auto key = create(kPath);
  for (const auto& [name, value] : cases) EXPECT_EQ(key->setValue(name, value), kErrorSuccess);
  const auto again = open(kPath);
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(again->setValue("text", cases[0].second), kErrorAccessDenied);
  RegistryValue read;
  EXPECT_EQ(again->queryValue("other", 100, read), kErrorFileNotFound);
  for (const auto& [name, value] : cases) {
    SCOPED_TRACE(name);
    const std::size_t size = value.bytes.size();
    if (size > 0) {
      read = {};
      EXPECT_EQ(again->queryValue(name, size - 1, read), kErrorMoreData);
      EXPECT_EQ(read.type, value.type);
      EXPECT_EQ(read.bytes, "");
    }
    EXPECT_EQ(again->queryValue(name, size, read), kErrorSuccess);
    EXPECT_EQ(read.type, value.type);
    EXPECT_EQ(read.bytes, value.bytes);
  }
}

std::unique_ptr<Registry> registryInFile(const std::string& head) {
  writeWholeFile("contract.reg", head);
  std::string error;
  return RegRegistry::load("contract.reg", error);
}

INSTANTIATE_TEST_SUITE_P(
    Files, RegistryContract,
    testing::Values(
        RegistryImplementation{
            "Utf8File", [] { return registryInFile("Windows Registry Editor Version 5.00\r\n"); }},
        RegistryImplementation{"Version4File", [] { return registryInFile("REGEDIT4"); }},
        RegistryImplementation{"TwoFiles",
                               [] {
                                 writeWholeFile("settings.reg", "REGEDIT4");
                                 std::string error;
                                 return SystemRegRegistry::load("settings.reg", "new.reg", error);
                               }}),
    [](const auto& implementation) { return implementation.param.name; });

}  // namespace
}  // namespace platform
