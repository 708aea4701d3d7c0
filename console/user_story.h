// What `pwlapse explain` finds out about one user beside the records of a dry run: which lists name
// him, which policy has him and why not the others, the warning days with their dates.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "config/expiration_settings.h"
#include "console/calendar.h"
#include "notify/user_record.h"
#include "platform/host/host.h"
#include "service/pass_record.h"

namespace console {

struct ListEntry {
  std::string file;
  std::size_t line = 0;  // from 1; 0: the list of the domain's users, which a pass makes
  bool excludes = false;
};

struct PolicyVerdict {
  std::string label;    // "Policy1"
  std::string title;    // policyName; may be empty
  std::int32_t maxAge;  // days
  std::uint32_t emailWarnings;
  std::vector<ListEntry> entries;  // of this policy's lists, that name the user
  bool has = false;
  std::string why;
};

struct WarningDay {
  std::int32_t daysLeft = 0;
  std::int64_t day = 0;  // as Calendar has it
};

struct UserStory {
  config::ExpirationSettings settings;
  std::string whyReportOnly;  // of the settings alone; empty when they mail
  bool accountFound = false;
  std::string accountError;  // why it was not, else empty
  platform::UserInfo account;
  service::PassRecord pass;                    // the dry run that all this was found in
  std::vector<notify::UserRecord> records;     // of the user, in the order of the pass
  const notify::UserRecord* record = nullptr;  // the one of the policy that has him, if any
  std::vector<PolicyVerdict> policies;         // those in use, in the order of a pass
  std::string manager;     // who gets copies, and whether one is due; empty: managerDays is off
  std::string mailSource;  // what a warning to him is made from, and why
};

// `name` is a logon name in the ANSI code page. Reads this user only, where the directory allows.
UserStory tellStory(const platform::Host& host, const std::string& name);

// The days on which a user of the record is warned; empty when that is in every pass.
std::vector<WarningDay> warningDays(const UserStory& story, const Calendar& calendar);

// At most three names of the directory and the lists that are near to this one or hold it.
std::vector<std::string> nearUsers(const platform::Host& host, const std::string& name);

}  // namespace console
