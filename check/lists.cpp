// The lists of the policies: whether each can be read as it was meant, and whom it names. Walks
// them in the order in which a pass visits them, so that it knows who wins.
#include <algorithm>
#include <memory>
#include <optional>
#include <unordered_map>

#include "base/ascii.h"
#include "base/nearest_name.h"
#include "check/checks.h"
#include "config/pass_files.h"
#include "directory/domain_directory.h"
#include "directory/password_expiry.h"
#include "platform/system/files.h"
#include "platform/text/code_page.h"
#include "platform/text/text_lines.h"
#include "service/user_list.h"

namespace check {
namespace {

// Of one list; the rest is counted.
constexpr std::size_t kMostLines = 20;
// Users whose rights are asked for, a round trip each.
constexpr std::size_t kMostDue = 20;
constexpr std::size_t kMostOthers = 3;
constexpr std::size_t kShortestName = 3;

struct Entry {
  std::string name;  // ANSI
  std::size_t line = 0;
};

std::string place(const std::string& file, std::size_t line) {
  return file + ":" + std::to_string(line);
}

// Collects the lines about one list, up to a number.
class ListLines {
 public:
  ListLines(std::string file, Report& report) : file_(std::move(file)), report_(report) {}
  ~ListLines() {
    if (count_ <= kMostLines) return;
    report_.note(file_, std::to_string(count_ - kMostLines) + " more lines like these");
  }
  ListLines(const ListLines&) = delete;
  ListLines& operator=(const ListLines&) = delete;

  void fault(std::size_t line, const std::string& text, const std::string& cure) {
    if (++count_ <= kMostLines) report_.fault(place(file_, line), text, cure);
  }
  void note(std::size_t line, const std::string& text, const std::string& cure = {}) {
    if (++count_ <= kMostLines) report_.note(place(file_, line), text, cure);
  }

 private:
  std::string file_;
  Report& report_;
  std::size_t count_ = 0;
};

class ListsCheck {
 public:
  ListsCheck(const Site& site, Report& report, std::vector<std::string>& due)
      : site_(site), report_(report), due_(due) {}

  void run();

 private:
  struct Claim {
    int slot;
    std::string place;  // empty: as one of the domain's users
  };
  using Excluded = std::unordered_map<std::string, std::string>;  // key of the name: place

  void fileNames();
  void unusedFiles(int slot);
  void visit(int slot);
  std::optional<std::vector<Entry>> read(const std::string& file, ListLines& lines);
  Excluded readExcluded(const std::string& file);
  bool isAccount(const Entry& entry, ListLines& lines);
  void includeEntry(int slot, const std::string& file, const Entry& entry, const Excluded& excluded,
                    ListLines& lines);
  void domainUsers(int slot, const Excluded& excluded);
  void noteIfDue(int slot, const std::string& name);

  const Site& site_;
  Report& report_;
  std::vector<std::string>& due_;
  bool knowsAccounts_ = false;
  std::vector<std::string> domainUsers_;
  std::vector<std::string> others_;  // who are not due, to be asked about where nobody is
  std::unordered_map<std::string, Claim> claims_;  // by the key of the name
};

void ListsCheck::run() {
  platform::DomainModals modals;
  const bool readable = site_.host.accounts.domainModals(modals) == platform::kNetSuccess;
  knowsAccounts_ = readable && !site_.host.accounts.ofThisMachineOnly();
  if (readable) {
    config::DebugLog silent = config::DebugLog::nowhere();
    directory::DomainDirectory domain(site_.host.directory, silent, nullptr);
    domain.forEachDomainUser([this](const std::string& name) { domainUsers_.push_back(name); });
  } else {
    report_.note("lists", "the directory cannot be read: names are not compared with accounts",
                 "see the part \"directory\"");
  }
  fileNames();
  std::vector<int> seen;
  for (const int slot : service::policyOrder(site_.slots)) {
    if (std::count(seen.begin(), seen.end(), slot) != 0) continue;
    seen.push_back(slot);
    if (service::effectiveMaxAge(site_.slots, slot) == 0) {
      unusedFiles(slot);
    } else {
      visit(slot);
    }
  }
  if (due_.empty()) due_ = others_;
}

// Files that look as if they were to be lists.
void ListsCheck::fileNames() {
  std::vector<std::string> known = {config::kDomainUsersFile};
  for (int slot = 0; slot < service::kPolicySlots; ++slot) {
    known.push_back(service::policyFiles(slot).include);
    known.push_back(service::policyFiles(slot).exclude);
  }
  for (const std::string& name : platform::namesInFolder(".")) {
    const bool isKnown = std::any_of(known.begin(), known.end(), [&](const auto& other) {
      return base::equalsNoCase(other, name);
    });
    if (isKnown || !base::beginsWithNoCase(name, "pwsentry") || name.ends_with(".lock")) continue;
    const std::string nearest = base::nearestName(name, known);
    report_.fault(
        name, "is not read" + (nearest.empty() ? "" : ": " + nearest + " may be meant"),
        nearest.empty() ? "docs/lists.md has the names of lists; rename or move it" : "rename it");
  }
}

void ListsCheck::unusedFiles(int slot) {
  const service::PolicyFiles files = service::policyFiles(slot);
  for (const std::string& file : {files.include, files.exclude}) {
    if (file == config::kDomainUsersFile || !platform::fileExists(file)) continue;
    report_.note(file, "is not read: its policy has no maximum age or no name");
  }
}

std::optional<std::vector<Entry>> ListsCheck::read(const std::string& file, ListLines& lines) {
  service::UserList list(file, service::UserList::Writer::Person);
  std::vector<Entry> entries;
  if (list.state() == service::UserList::State::Missing) return std::nullopt;
  for (std::string name; list.next(name);) {
    const bool again = !entries.empty() && entries.back().line == list.line();
    if (again) {
      lines.fault(list.line(), "has more than 127 bytes and counts as several names",
                  "write one name a line");
    }
    entries.push_back({name, list.line()});
  }
  if (list.state() == service::UserList::State::Unusable) {
    const std::string& problem = list.problem();
    report_.fault(
        file,
        problem.substr(std::min(problem.size(), file.size() + 1)) + ": its policy is left out",
        "save it as UTF-8, one name a line, readable for the program's user");
    return std::nullopt;
  }
  if (!list.cutName().empty()) {
    lines.fault(
        list.line(),
        "has no line end and is read as \"" + platform::loggableAnsiLine(list.cutName()) + "\"",
        "end the last line with a line end");
  }
  return entries;
}

// False, and said, when the entry names no account.
bool ListsCheck::isAccount(const Entry& entry, ListLines& lines) {
  platform::UserInfo info;
  if (!knowsAccounts_ || entry.name.empty()) return true;
  const platform::AccountResult found =
      site_.host.accounts.userInfo(platform::ansiToUtf16(entry.name), info);
  if (found.status != platform::kNetUserNotFound) return true;
  const std::string nearest = base::nearestName(entry.name, domainUsers_);
  std::string cure = "correct or remove the line";
  if (entry.name.find('\\') != std::string::npos) {
    cure = "write the logon name alone, without the domain";
  } else if (entry.name.find('@') != std::string::npos) {
    cure = "write the logon name (sAMAccountName), not an address";
  } else if (entry.name.find(' ') != std::string::npos) {
    cure = "write logon names (sAMAccountName), not display names or groups";
  }
  lines.fault(entry.line,
              '"' + platform::loggableAnsiLine(entry.name) + "\" is no account's logon name" +
                  (nearest.empty() ? "" : ": \"" + nearest + "\" may be meant"),
              cure);
  return false;
}

ListsCheck::Excluded ListsCheck::readExcluded(const std::string& file) {
  Excluded excluded;
  ListLines lines(file, report_);
  const std::optional<std::vector<Entry>> entries = read(file, lines);
  if (!entries) return excluded;
  for (const Entry& entry : *entries) {
    if (entry.name.empty() || !isAccount(entry, lines)) continue;
    const auto [other, isNew] =
        excluded.emplace(service::nameKey(entry.name), place(file, entry.line));
    if (!isNew) lines.note(entry.line, '"' + entry.name + "\" stands in " + other->second, "");
  }
  report_.ok(file, std::to_string(excluded.size()) + " accounts are left out");
  return excluded;
}

void ListsCheck::visit(int slot) {
  const service::PolicyFiles files = service::policyFiles(slot);
  const Excluded excluded = readExcluded(files.exclude);
  if (site_.slots[static_cast<std::size_t>(slot)].appliesToDomainUsers == 1) {
    return domainUsers(slot, excluded);
  }
  ListLines lines(files.include, report_);
  if (!platform::fileExists(files.include)) {
    report_.fault(files.include, "is not there: " + service::slotLabel(slot) + " covers nobody",
                  "write the list, or take the policy's maximum age away");
    return;
  }
  const std::optional<std::vector<Entry>> entries = read(files.include, lines);
  if (!entries) return;
  const std::size_t before = claims_.size();
  for (const Entry& entry : *entries) includeEntry(slot, files.include, entry, excluded, lines);
  if (entries->empty()) {
    report_.fault(files.include, "is empty: " + service::slotLabel(slot) + " covers nobody",
                  "write one logon name a line");
  } else {
    const std::size_t users = claims_.size() - before;
    report_.ok(files.include, service::slotLabel(slot) + " has " + std::to_string(users) +
                                  (users == 1 ? " user" : " users"));
  }
}

void ListsCheck::includeEntry(int slot, const std::string& file, const Entry& entry,
                              const Excluded& excluded, ListLines& lines) {
  const std::string shown = '"' + platform::loggableAnsiLine(entry.name) + '"';
  if (entry.name.empty()) return;
  if (entry.name.back() == '$') {
    return lines.note(entry.line, shown + " is a computer's account and is left out");
  }
  if (platform::ansiToUtf16(entry.name).size() < kShortestName) {
    return lines.note(entry.line, shown + " has less than 3 characters and is left out");
  }
  if (!isAccount(entry, lines)) return;
  const std::string key = service::nameKey(entry.name);
  if (const auto left = excluded.find(key); left != excluded.end()) {
    return lines.note(entry.line, shown + " stands in " + left->second + ", too, and is left out");
  }
  const auto [claim, isNew] = claims_.emplace(key, Claim{slot, place(file, entry.line)});
  if (isNew) return noteIfDue(slot, entry.name);
  const int winner = claim->second.slot;
  lines.note(
      entry.line,
      shown + " stands in " + claim->second.place + ", too" +
          (winner == slot
               ? ""
               : ": " + service::slotLabel(winner) + " has him (maximum age " +
                     std::to_string(service::effectiveMaxAge(site_.slots, winner)) + " days)"),
      "remove one of the two lines");
}

void ListsCheck::domainUsers(int slot, const Excluded& excluded) {
  std::size_t count = 0;
  for (const std::string& name : domainUsers_) {
    const std::string key = service::nameKey(name);
    if (excluded.count(key) != 0 || !claims_.emplace(key, Claim{slot, ""}).second) continue;
    ++count;
    noteIfDue(slot, name);
  }
  if (!domainUsers_.empty()) {
    report_.ok(service::slotLabel(slot),
               "has the other " + std::to_string(count) + " enabled users of the domain");
  }
}

// In the warning period, or past it: whose change may have to be forced.
void ListsCheck::noteIfDue(int slot, const std::string& name) {
  constexpr std::uint32_t kSpared =
      platform::kAccountDisabled | platform::kPasswordDontExpire | platform::kPasswordCantChange;
  platform::UserInfo info;
  if (due_.size() >= kMostDue ||
      !site_.host.accounts.userInfo(platform::ansiToUtf16(name), info).ok() ||
      (info.flags & kSpared) != 0 || info.passwordExpired != 0) {
    return;
  }
  const std::uint32_t age = info.passwordAge / directory::kSecondsPerDay;
  const auto maxAge = static_cast<std::uint32_t>(service::effectiveMaxAge(site_.slots, slot));
  const bool isDue = age + site_.settings.warningThreshold >= maxAge;
  if (isDue) due_.push_back(name);
  if (!isDue && others_.size() < kMostOthers) others_.push_back(name);
}

}  // namespace

void checkLists(const Site& site, Report& report, std::vector<std::string>& due) {
  report.begin(Part::Lists);
  ListsCheck(site, report, due).run();
}

}  // namespace check
