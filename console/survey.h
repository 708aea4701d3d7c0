// What a pass would do today for each user: a dry run whose records are kept. Behind the commands
// that list and explain users.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "notify/user_record.h"
#include "platform/host/host.h"
#include "service/dry_run.h"

namespace console {

struct SurveyOptions {
  service::DryRunOptions run;
  // Which records are kept; empty: all.
  std::function<bool(const notify::UserRecord& user)> wanted;
  // A pass looks addresses up only for users that it may mail today; this does for all that are
  // kept.
  bool addresses = false;
  // With the addresses language, manager and the like, where the pass itself wants them.
  bool details = false;
};

struct Survey {
  service::PassRecord pass;
  std::vector<notify::UserRecord> users;  // in the order of the pass
};

// Blocks for as long as the directory takes.
Survey makeSurvey(const platform::Host& host, const SurveyOptions& options);

// One record a user: that of the policy that has him, or the first of those that leave him out.
void keepOneOfEach(std::vector<notify::UserRecord>& users);

}  // namespace console
