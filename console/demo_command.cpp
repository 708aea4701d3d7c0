#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "config/pass_files.h"
#include "console/commands.h"
#include "console/demo_site.h"
#include "console/pass_watcher.h"
#include "console/smtp_catcher.h"
#include "notify/run_report.h"
#include "platform/host/system_host.h"
#include "platform/system/files.h"
#include "platform/system/path_name.h"
#include "platform/system/process.h"
#include "platform/system/random.h"
#include "platform/text/code_page.h"
#include "service/expiration_run.h"

namespace console {
namespace {

namespace fs = std::filesystem;

constexpr const char* kMailDirectory = "mails";
constexpr int kNewFolderTries = 100;

// A folder that nobody had before, and nobody else can look into.
fs::path makeNewFolder(std::error_code& status) {
  fs::path base = fs::temp_directory_path(status);
  for (int attempt = 0; attempt < kNewFolderTries && !status; ++attempt) {
    fs::path dir = base / ("pwlapse-demo-" + std::to_string(platform::random32()));
    if (!fs::create_directory(dir, status)) continue;
    fs::permissions(dir, fs::perms::owner_all, status);
    return dir;
  }
  return base;
}

// Makes the demo's folder and enters it. A folder that holds something else is left alone.
bool enterWorkDir(const std::string& wanted, std::string& error) {
  std::error_code status;
  const fs::path dir = wanted.empty() ? makeNewFolder(status) : platform::pathOf(wanted);
  if (!status) fs::create_directories(dir, status);
  if (status) {
    error = platform::nameOf(dir) + ": " + status.message();
    return false;
  }
  if (!fs::is_empty(dir, status) && !fs::exists(dir / kDemoRegistryFile, status)) {
    error = platform::nameOf(dir) + ": not empty and not the folder of an earlier demo";
    return false;
  }
  if (!platform::setWorkingDirectory(platform::nameOf(dir))) {
    error = platform::nameOf(dir) + ": cannot be entered";
    return false;
  }
  fs::remove_all(kMailDirectory, status);  // the mails of an earlier demo
  return true;
}

// Pads to a column by characters, not bytes.
std::string padded(const std::string& text, std::size_t width) {
  const std::size_t length = platform::ansiToUtf16(text).size();
  return text + std::string(length < width ? width - length : 1, ' ');
}

bool isExpected(const notify::UserRecord& user, std::vector<ExpectedOutcome>& expected) {
  const auto match = std::find_if(expected.begin(), expected.end(), [&](const auto& candidate) {
    return candidate.username == user.username && candidate.slot == user.slot &&
           candidate.outcome == service::outcomeOf(user) &&
           candidate.skipReasons == user.skipReasons;
  });
  if (match == expected.end()) return false;
  expected.erase(match);
  return true;
}

// One line per user and policy; false when one did not come out as the site was made to.
bool printUsers(const std::vector<notify::UserRecord>& users) {
  std::vector<ExpectedOutcome> missing = demoExpectations();
  bool allExpected = true;
  std::printf("%s%s%sWHY\n", padded("USER", 15).c_str(), padded("POLICY", 15).c_str(),
              padded("OUTCOME", 16).c_str());
  for (const notify::UserRecord& user : users) {
    const bool expected = isExpected(user, missing);
    allExpected = allExpected && expected;
    std::printf("%s%s%s%s%s\n", padded(user.username, 15).c_str(),
                padded(service::slotLabel(user.slot), 15).c_str(),
                padded(service::outcomeLabel(service::outcomeOf(user)), 16).c_str(),
                service::outcomeReason(user).c_str(), expected ? "" : "  (NOT AS EXPECTED)");
  }
  for (const ExpectedOutcome& one : missing) {
    std::printf("%s was not examined as expected in %s\n", one.username.c_str(),
                service::slotLabel(one.slot).c_str());
  }
  return allExpected && missing.empty();
}

void printPaths(const SmtpCatcher& catcher) {
  std::printf("\nMails caught:\n");
  for (const std::string& file : catcher.savedFiles()) {
    std::printf("  %s\n", platform::absolutePath(file).c_str());
  }
  std::printf("Report:\n  %s\n", platform::absolutePath(config::kReportFile).c_str());
  std::error_code status;
  std::printf("The site itself, with registry, directory, lists and logs:\n  %s\n",
              platform::nameOf(fs::current_path(status)).c_str());
}

std::string quotedForShell(const std::string& path) {
  return path.find(' ') == std::string::npos ? path : '"' + path + '"';
}

// To be pasted: what can be asked of any site, asked of this one.
void printQuestions() {
  const std::string image = platform::systemProcess().imagePath();
  const std::string program = quotedForShell(image.empty() ? "pwlapse" : image);
  const std::string site = std::string(" --registry ") + kDemoRegistryFile;
  std::error_code status;
  std::printf("\nAsk it more about this site (ready to paste):\n  cd %s\n",
              quotedForShell(platform::nameOf(fs::current_path(status))).c_str());
  for (const std::string& command :
       {"explain carla.clausen" + site, "preview ben.berg" + site, "forecast" + site,
        "forecast" + site + " --set DefaultPolicy.maxPasswordAge=60", std::string("status")}) {
    std::printf("  %s %s\n", program.c_str(), command.c_str());
  }
}

}  // namespace

int demoCommand(const DemoOptions& options) {
  std::string error;
  if (!enterWorkDir(options.workDir, error)) return refuse(error);
  SmtpCatcher catcher;
  CatcherOptions catcherOptions;
  catcherOptions.directory = kMailDirectory;
  catcherOptions.refusedRecipients = {kDemoRefusedAddress};
  if (!catcher.start(catcherOptions, error)) return refuse(error);
  if (!makeDemoSite(platform::systemClock(), catcher.port(), error)) return refuse(error);

  platform::HostOptions hostOptions;
  hostOptions.registryFile = platform::absolutePath(kDemoRegistryFile);
  const std::unique_ptr<platform::SystemHost> system = platform::makeSystemHost(hostOptions, error);
  if (!system) return refuse(error);
  const platform::Host host = system->host();

  PassWatcher watcher(PassWatcher::Keep::Users, nullptr);
  service::ExpirationRun run(host, service::readServiceValues(host.registry), &watcher, nullptr);
  run.prepare();
  const service::PassRecord record = run.pass();
  watcher.finish();
  catcher.stop();
  const bool asExpected = printUsers(watcher.users());
  std::printf("\n%sThe failure is part of the demonstration: the server refuses %s.\n",
              service::summaryText(record).c_str(), kDemoRefusedAddress);
  printPaths(catcher);
  printQuestions();
  return asExpected ? kExitDone : kExitSomethingFailed;
}

}  // namespace console
