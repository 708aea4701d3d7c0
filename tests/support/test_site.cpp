#include "tests/support/test_site.h"

#include <fstream>
#include <memory>

#include <gtest/gtest.h>

#include "base/format_text.h"
#include "base/text.h"
#include "config/registry_readers.h"
#include "platform/directory/ldif/ldif_source.h"
#include "platform/directory/snapshot_directory.h"
#include "platform/registry/file/reg_registry.h"
#include "tests/support/text_file.h"

namespace test_support {
namespace {

constexpr const char* kRegistryFile = "site.reg";
constexpr const char* kDirectoryFile = "domain.ldif";

}  // namespace

const notify::UserRecord& WatchedPass::of(const std::string& name, int slot) const {
  static const notify::UserRecord none;
  for (const notify::UserRecord& user : users) {
    if (user.username == name && user.slot == slot) return user;
  }
  ADD_FAILURE() << name << " was not examined in slot " << slot;
  return none;
}

TestSite::TestSite() {
  setting("smtpServer", "127.0.0.1");
  setting("smtpPort", 1);  // nobody listens there
}

void TestSite::set(const std::string& key, const std::string& value, const std::string& syntax) {
  registry_[key][value] = syntax;
}

void TestSite::setNumber(const std::string& key, const std::string& value, std::uint32_t number) {
  set(key, value, base::formatText("dword:%08x", number));
}

void TestSite::setting(const std::string& value, std::uint32_t number) {
  setNumber(config::kExpirationKeyMpe, value, number);
}

void TestSite::setting(const std::string& value, const std::string& text) {
  std::string quoted = text;
  base::replaceAll(quoted, "\\", "\\\\");
  base::replaceAll(quoted, "\"", "\\\"");
  set(config::kExpirationKeyMpe, value, "\"" + quoted + "\"");
}

void TestSite::policy(const std::string& name, std::uint32_t maxAge, std::uint32_t emailWarnings) {
  const std::string key = std::string(config::kPolicyRootMpe) + "\\" + name;
  set(key, "policyName", "\"" + name + " of the site\"");
  setNumber(key, "maxPasswordAge", maxAge);
  setNumber(key, "emailWarnings", emailWarnings);
}

void TestSite::user(const SiteUser& user) {
  users_.push_back(user);
}

void TestSite::write(const std::string& file, const std::string& text) {
  std::ofstream(file, std::ios::binary) << text;
}

std::string TestSite::read(const std::string& file) const {
  return readText(file);
}

void TestSite::writeOut() {
  if (written_) return;
  written_ = true;
  std::string reg = "Windows Registry Editor Version 5.00\r\n";
  for (const auto& [key, values] : registry_) {
    reg += "\r\n[HKEY_LOCAL_MACHINE\\" + key + "]\r\n";
    for (const auto& [name, syntax] : values) reg += "\"" + name + "\"=" + syntax + "\r\n";
  }
  write(kRegistryFile, reg);

  write(kDirectoryFile, console::sampleDirectory("DC=site,DC=example", 42, users_, clock.now));
}

WatchedPass TestSite::pass(const service::ServiceValues& values,
                           std::unique_ptr<platform::DirectorySource> source) {
  writeOut();
  std::string error;
  const auto registry = platform::RegRegistry::load(kRegistryFile, error);
  WatchedPass pass;
  if (!registry) {
    ADD_FAILURE() << error;
    return pass;
  }
  if (!source) source = std::make_unique<platform::LdifSource>(kDirectoryFile);
  platform::SnapshotDirectory directory(std::move(source), clock);
  service::ExpirationRun run({*registry, directory, directory, clock}, values, &pass);
  run.stopWhen(stopRequested);
  run.mailBy(transport);
  run.prepare();
  pass.record = run.pass();
  return pass;
}

std::uint32_t TestSite::registryNumber(const std::string& key, const std::string& value) {
  std::string error;
  const auto registry = platform::RegRegistry::load(kRegistryFile, error);
  return registry ? config::readNumber(*registry, key, value) : 0;
}

}  // namespace test_support
