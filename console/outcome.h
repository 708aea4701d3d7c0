// What became of one user in a pass, in words for an administrator.
// Used by the summaries of the console.
#pragma once

#include <string>

#include "service/run_observer.h"

namespace console {

// One of these for every line of a user list.
enum class Outcome {
  OutsidePeriod,
  Warned,
  NotMailed,
  MailFailed,
  Expired,
  WouldExpire,
  ExpiryRefused,
  Skipped,
};
inline constexpr int kOutcomes = 8;

Outcome outcomeOf(const service::UserVerdict& verdict);

// A few words for a table's column and a count's label.
const char* outcomeLabel(Outcome outcome);

// Why it came to that, one line.
std::string outcomeReason(const service::UserVerdict& verdict);

// "DefaultPolicy", "Policy1", "Length1".
std::string slotLabel(int slot);

}  // namespace console
