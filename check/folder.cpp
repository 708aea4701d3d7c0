// The work folder: what a pass has to read and write there, and the space for it.
#include <filesystem>
#include <string>

#include "base/format_text.h"
#include "check/checks.h"
#include "config/pass_files.h"
#include "platform/system/file_rights.h"
#include "platform/system/files.h"
#include "platform/system/path_name.h"

namespace check {
namespace {

namespace fs = std::filesystem;

// Lists, logs and report of 100,000 users take some 30 MB.
constexpr std::uintmax_t kEnoughBytes = std::uintmax_t{100} << 20U;

// Written by a pass, in the folder and below it.
constexpr const char* kWritten[] = {
    config::kDomainUsersFile,   config::kLogoFile,           config::kMailErrorFile,
    config::kWarningLedgerFile, config::kDebugLogFile,       config::kSkipListFile,
    config::kExpiringSoonLog,   config::kExpiredPasswordLog, config::kReportFile,
};

void checkSpace(const std::string& folder, Report& report) {
  std::error_code status;
  const fs::space_info space = fs::space(".", status);
  if (status) return;
  const auto megabytes = static_cast<unsigned long long>(space.available >> 20U);
  const std::string text = base::formatText("%llu MB are free", megabytes);
  if (space.available < kEnoughBytes) {
    report.fault(folder, text + ": logs and report may not find room",
                 "make room; 100 MB are enough for 100,000 users");
  } else {
    report.ok(folder, text);
  }
}

// A file that a pass replaces is written anew, so the right to the folder is what counts for it;
// the others are opened as they are.
void checkFile(const char* name, const std::string& owner, Report& report) {
  if (!platform::fileExists(name)) return;
  const std::string cure = owner.empty() ? "give the program's user the right to write it"
                                         : "chown " + owner + " it, or remove it";
  if (!platform::mayWrite(name)) {
    report.fault(name, "cannot be written", cure);
  } else if (!platform::folderOwnerMayWrite(".", name)) {
    report.fault(name,
                 "belongs to " + platform::fileOwner(name) + ", so that " + owner +
                     ", who owns the folder, cannot write it",
                 cure);
  }
}

}  // namespace

void checkFolder(const Site&, Report& report) {
  report.begin(Part::Folder);
  std::error_code status;
  const std::string folder = platform::nameOf(fs::current_path(status));
  const std::string owner = platform::fileOwner(".");
  if (!platform::mayWrite(".")) {
    report.fault(folder, "cannot be written" + (owner.empty() ? "" : "; it belongs to " + owner),
                 "give the program's user the right to write there, or name another --work-dir");
  } else {
    report.ok(folder, "can be written" + (owner.empty() ? "" : "; it belongs to " + owner));
  }
  if (platform::folderIsShared(".")) {
    report.note(folder, "other users can write here, and so to lists and templates",
                "take the right from them");
  }
  checkSpace(folder, report);
  const fs::path logs = platform::pathOf(platform::absolutePath(config::kLogDirectory));
  if (fs::exists(logs, status) && !fs::is_directory(logs, status)) {
    report.fault(config::kLogDirectory, "is no folder: no log and no report can be written",
                 "remove it");
  } else if (fs::exists(logs, status) && !platform::mayWrite(config::kLogDirectory)) {
    report.fault(config::kLogDirectory, "cannot be written: no log and no report are kept",
                 "give the program's user the right to write there");
  }
  for (const char* name : kWritten) checkFile(name, owner, report);
}

}  // namespace check
