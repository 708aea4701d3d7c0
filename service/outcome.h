// What became of one user in a pass, in words for an administrator.
// The counts and words of a pass's summaries.
#pragma once

#include <string>

#include "notify/pass_mode.h"
#include "notify/user_record.h"

namespace service {

// One of these for every line of a user list.
enum class Outcome {
  OutsidePeriod,
  Warned,
  NotMailed,
  MailFailed,
  Expired,
  WouldExpire,
  ExpiryRefused,
  ExpiryWithheld,
  AlreadyExpired,
  NotRead,
  Skipped,
};
inline constexpr int kOutcomes = 11;

Outcome outcomeOf(const notify::UserRecord& user);

// A few words for a table's column and a count's label.
const char* outcomeLabel(Outcome outcome, notify::PassMode mode = notify::PassMode::Live);

// Why no mail was tried, in a few words: "no e-mail address".
const char* noMailLabel(notify::NoMail reason);

// Why it came to that, one line, with the age of the password.
std::string outcomeReason(const notify::UserRecord& user,
                          notify::PassMode mode = notify::PassMode::Live);

// The same without the age; empty outside the warning period.
std::string outcomeCause(const notify::UserRecord& user,
                         notify::PassMode mode = notify::PassMode::Live);

}  // namespace service
