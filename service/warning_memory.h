// Which warnings are still due when a pass remembers those that were mailed ("rememberWarnings"):
// each warning day once for a password, also when the day itself was missed; without warning days
// one mail a local day. Used by the thread of the pass; one object a pass.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "config/expiration_settings.h"
#include "config/findings.h"
#include "notify/user_record.h"
#include "notify/warning_ledger.h"
#include "platform/system/clock.h"

namespace service {

class WarningMemory {
 public:
  enum class State {
    Off,  // the settings want none
    Ready,
    Held,  // nobody can be mailed without risking a second mail, or one that is not true
  };

  explicit WarningMemory(notify::PassMode mode = notify::PassMode::Live) : ledger_(mode) {}

  // Opens the record when the settings want one and users are mailed at all. What is wrong with it
  // becomes a problem. By a clock that is wrong days would count as mailed that are not: nobody is
  // then. `clock` and `findings` are borrowed.
  void open(const config::ExpirationSettings& settings, bool clockIsWrong, platform::Clock& clock,
            config::Findings& findings);

  State state() const { return state_; }

  // Whether the user, who is in the warning period, has a warning to get.
  bool isDue(const notify::UserRecord& user) const;
  // Whether the user, past the maximum age, was told in an earlier pass that this password has
  // reached this maximum age. Asked with expireOnlyNotified only, which has it recorded.
  bool isNotified(const notify::UserRecord& user) const;
  // The user's mail was accepted. Where that cannot be recorded, further warnings are held back.
  void mailed(const notify::UserRecord& user);
  // The same two of the copy for the user's manager, which has a record of its own.
  bool isCopyDue(const notify::UserRecord& user) const;
  void copied(const notify::UserRecord& user);
  void finish();

 private:
  std::vector<std::int32_t> reachedDays(const notify::UserRecord& user) const;
  bool isDue(const notify::AccountPassword& password, const notify::UserRecord& user) const;
  void record(const notify::AccountPassword& password, const notify::UserRecord& user);

  State state_ = State::Off;
  std::vector<std::int32_t> warningDays_;
  platform::Clock* clock_ = nullptr;
  config::Findings* findings_ = nullptr;
  bool opened_ = false;
  bool recordsExpiry_ = false;
  notify::WarningLedger ledger_;
};

}  // namespace service
