// A small site for tests of a pass: a registry file and an LDIF domain in a temporary directory, a
// manual clock, and one pass over them.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "console/sample_directory.h"
#include "platform/directory/directory_snapshot.h"
#include "service/expiration_run.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_dir.h"

namespace test_support {

using SiteUser = console::SampleUser;

// A pass with the records of its users.
struct WatchedPass : service::PassObserver {
  std::vector<notify::UserRecord> users;
  service::PassRecord record;

  void userExamined(const notify::UserRecord& user) override { users.push_back(user); }
  const std::vector<std::string>& problems() const { return record.findings.problems().lines; }
  const std::vector<std::string>& notes() const { return record.findings.notes().lines; }
  // Of that user in that slot; fails the test and answers an empty one when missing.
  const notify::UserRecord& of(const std::string& name, int slot = 0) const;
};

class TestSite {
 public:
  TestSite();

  // Values are registry-file syntax: "dword:0000000e" or a quoted text.
  void set(const std::string& key, const std::string& value, const std::string& syntax);
  void setNumber(const std::string& key, const std::string& value, std::uint32_t number);
  void setting(const std::string& value, std::uint32_t number);
  void setting(const std::string& value, const std::string& text);
  // "DefaultPolicy", "Policy1", ... with warnings on.
  void policy(const std::string& name, std::uint32_t maxAge, std::uint32_t emailWarnings = 1);
  void user(const SiteUser& user);
  void write(const std::string& file, const std::string& text);
  std::string read(const std::string& file) const;  // "" when missing

  // Writes registry and directory out, the first time, and makes one pass: over the directory's
  // file, or another source.
  WatchedPass pass(const service::ServiceValues& values = {true, 3600000},
                   std::unique_ptr<platform::DirectorySource> source = nullptr);
  // The same, without the pass: for a run of one's own.
  void writeOut();
  std::uint32_t registryNumber(const std::string& key, const std::string& value);
  std::string directoryText() const { return read("domain.ldif"); }

  ManualClock clock;
  std::function<bool()> stopRequested;   // of the pass
  notify::MailTransportMaker transport;  // of its mails; empty: the mail library

 private:
  TempDir directory_;
  std::map<std::string, std::map<std::string, std::string>> registry_;
  std::vector<SiteUser> users_;
  bool written_ = false;
};

}  // namespace test_support
