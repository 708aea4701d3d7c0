#include "console/user_story.h"

#include <algorithm>
#include <set>
#include <utility>

#include "base/nearest_name.h"
#include "config/pass_files.h"
#include "config/registry_readers.h"
#include "console/user_look_up.h"
#include "directory/domain_directory.h"
#include "notify/warning_email.h"
#include "platform/text/code_page.h"
#include "service/dry_run.h"
#include "service/edition_keys.h"
#include "service/policy_table.h"
#include "service/user_list.h"

namespace console {
namespace {

using notify::UserRecord;
using service::UserList;

void findInList(const std::string& file, const std::string& key, bool excludes,
                std::vector<ListEntry>& entries) {
  UserList list(file, UserList::Writer::Person);
  for (std::string name; list.next(name);) {
    if (service::nameKey(name) == key) entries.push_back({file, list.line(), excludes});
  }
}

std::string placeText(const ListEntry& entry) {
  return entry.line == 0 ? entry.file : entry.file + ':' + std::to_string(entry.line);
}

// Why the policy does not have the user whom its lists name.
std::string whyNot(const UserRecord& user, const std::vector<ListEntry>& entries,
                   const UserRecord* holder) {
  if ((user.skipReasons & notify::kSkipExcluded) != 0) {
    const auto excluded = std::find_if(entries.begin(), entries.end(),
                                       [](const ListEntry& entry) { return entry.excludes; });
    return "left out by " + (excluded == entries.end() ? "its exclude list" : placeText(*excluded));
  }
  if ((user.skipReasons & notify::kSkipNameTooShort) != 0) {
    return "not taken: the name is shorter than 3 characters";
  }
  if ((user.skipReasons & notify::kSkipProcessedEarlier) != 0 && holder != nullptr) {
    return "not taken: " + service::slotLabel(holder->slot) + " has the user already";
  }
  return "not taken";
}

// Keeps the records of a dry run, with names and addresses.
class Keeper final : public service::PassObserver {
 public:
  Keeper(platform::DirectoryAccess& directory, std::vector<UserRecord>& records)
      : lookUp_(directory, UserLookUp::Details::Wanted), records_(records) {}

  void userExamined(const UserRecord& user) override {
    records_.push_back(user);
    if (user.accountFound) lookUp_.complete(user.username, records_.back().data);
  }

 private:
  UserLookUp lookUp_;
  std::vector<UserRecord>& records_;
};

// Empty: managers get nothing.
std::string managerText(const config::ExpirationSettings& settings, const UserRecord& user) {
  if (settings.managerDays == 0) return "";
  const directory::UserDirectoryData& data = user.data;
  if (data.manager.empty()) return "none in the directory: nobody gets a copy";
  if (data.managerEmail.empty()) {
    return platform::utf16ToAnsi(data.manager) + ": no e-mail address in the directory, so no copy";
  }
  return data.managerName + " <" + data.managerEmail + ">: gets a copy from " +
         std::to_string(settings.managerDays) + " days left on" +
         (user.managerDue ? "; one is due today" : "");
}

class StoryTeller {
 public:
  StoryTeller(const platform::Host& host, const std::string& name)
      : host_(host), name_(name), key_(service::nameKey(name)) {}

  UserStory tell() {
    service::DryRunOptions options;
    options.onlyUser = name_;
    Keeper keeper(host_.directory, story_.records);
    story_.pass = service::makeDryRun(host_, &keeper, options);
    for (const UserRecord& user : story_.records) {
      constexpr std::uint32_t kNotTaken =
          notify::kSkipExcluded | notify::kSkipProcessedEarlier | notify::kSkipNameTooShort;
      if (story_.record == nullptr && (user.skipReasons & kNotTaken) == 0) story_.record = &user;
    }
    readAccount();
    readPolicies();
    if (story_.record != nullptr) {
      const notify::MailTemplates templates(story_.settings);
      story_.mailSource = notify::warningSource(templates, story_.settings, *story_.record);
      story_.manager = managerText(story_.settings, *story_.record);
    }
    return std::move(story_);
  }

 private:
  void readAccount() {
    const platform::AccountResult result =
        host_.accounts.userInfo(platform::ansiToUtf16(name_), story_.account);
    story_.accountFound = result.ok();
    if (!result.ok() && result.status != platform::kNetUserNotFound) {
      story_.accountError = result.text;
    }
  }

  void readPolicies() {
    const service::EditionKeys keys = service::findEditionKeys(host_.registry);
    story_.settings = config::loadExpirationSettings(host_.registry, keys.settingsKey);
    const bool hasServer =
        config::storedType(host_.registry, keys.settingsKey, "smtpServer").has_value();
    story_.whyReportOnly = story_.settings.reportOnly      ? "reportOnly is set"
                           : story_.settings.testEmailOnly ? "testEmailOnly is set"
                           : !hasServer                    ? "there is no smtpServer"
                                                           : "";
    config::DebugLog silent = config::DebugLog::nowhere();
    const service::PolicyTable slots =
        service::loadPolicyTable(host_.registry, story_.settings, keys.memberServer, silent);
    for (const int slot : service::policyOrder(slots)) {
      const config::PolicyRecord& policy = slots[static_cast<std::size_t>(slot)];
      if (service::effectiveMaxAge(slots, slot) != 0) addPolicy(slot, policy);
    }
  }

  void addPolicy(int slot, const config::PolicyRecord& policy) {
    PolicyVerdict verdict{service::slotLabel(slot),
                          policy.policyName,
                          static_cast<std::int32_t>(policy.maxPasswordAge),
                          policy.emailWarnings,
                          {},
                          false,
                          ""};
    const service::PolicyFiles files = service::policyFiles(slot);
    const auto found = std::find_if(story_.records.begin(), story_.records.end(),
                                    [slot](const UserRecord& user) { return user.slot == slot; });
    const bool named = found != story_.records.end();
    if (policy.appliesToDomainUsers == 1) {
      if (named) verdict.entries.push_back({config::kDomainUsersFile, 0, false});
    } else {
      findInList(files.include, key_, false, verdict.entries);
    }
    findInList(files.exclude, key_, true, verdict.entries);
    verdict.has = story_.record != nullptr && story_.record->slot == slot;
    if (verdict.has) {
      verdict.why = "has this user";
    } else {
      verdict.why =
          named ? whyNot(*found, verdict.entries, story_.record) : "does not name this user";
    }
    story_.policies.push_back(std::move(verdict));
  }

  const platform::Host& host_;
  std::string name_;
  std::string key_;
  UserStory story_;
};

}  // namespace

UserStory tellStory(const platform::Host& host, const std::string& name) {
  UserStory story = StoryTeller(host, name).tell();
  return story;
}

std::vector<WarningDay> warningDays(const UserStory& story, const Calendar& calendar) {
  std::vector<WarningDay> days;
  const auto& wanted = story.settings.warnings;
  if (story.record == nullptr ||
      std::none_of(wanted.begin(), wanted.end(), [](std::int32_t day) { return day > 0; })) {
    return days;
  }
  std::set<std::int32_t, std::greater<>> sorted(wanted.begin(), wanted.end());
  for (const std::int32_t day : sorted) {
    const bool inPeriod = day <= static_cast<std::int64_t>(story.settings.warningThreshold);
    const bool counts = day > 0 || wanted.back() == day;
    if (inPeriod && counts && day >= 0) {
      days.push_back({day, calendar.today() + story.record->daysLeft() - day});
    }
  }
  return days;
}

std::vector<std::string> nearUsers(const platform::Host& host, const std::string& name) {
  constexpr std::size_t kMostShown = 3;
  constexpr std::size_t kShortestPart = 3;
  const std::string key = service::nameKey(name);
  const std::size_t most = std::max<std::size_t>(2, key.size() / 4);
  std::set<std::pair<std::size_t, std::string>> near;
  const auto consider = [&](const std::string& candidate) {
    const std::string other = service::nameKey(candidate);
    const bool holds = key.size() >= kShortestPart && other.find(key) != std::string::npos;
    const std::size_t distance = holds ? 1 : base::nameDistance(key, other, most);
    if (distance <= most) near.emplace(distance, candidate);
    if (near.size() > kMostShown) near.erase(std::prev(near.end()));
  };
  host.directory.restrictTo(u"");
  host.directory.beginPass();
  config::DebugLog silent = config::DebugLog::nowhere();
  directory::DomainDirectory(host.directory, silent, nullptr).forEachDomainUser(consider);
  host.directory.endPass();
  for (int slot = 0; slot < service::kPolicySlots; ++slot) {
    const service::PolicyFiles files = service::policyFiles(slot);
    if (files.include == config::kDomainUsersFile) continue;
    UserList list(files.include, UserList::Writer::Person);
    for (std::string candidate; list.next(candidate);) consider(candidate);
  }
  std::vector<std::string> names;
  for (const auto& [distance, candidate] : near) names.push_back(candidate);
  return names;
}

}  // namespace console
