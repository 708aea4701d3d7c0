// What a pass does with one line of an include file: screens the account, works out the days that
// are left, warns, expires, reports. Used by the expiration run only, on its thread.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_set>

#include "config/debug_log.h"
#include "config/expiration_settings.h"
#include "config/policy_record.h"
#include "directory/domain_directory.h"
#include "notify/run_report.h"
#include "platform/host/host.h"
#include "service/processed_users.h"
#include "service/run_observer.h"

namespace service {

// The policy slot in hand.
struct PolicyInHand {
  int slot = 0;
  std::int32_t maxAge = 0;  // days
  std::uint32_t emailWarnings = 0;
  std::unordered_set<std::string> excluded;  // keys of the names in the exclude file
};

// What a pass knows as a whole; filled by the run, changed by the examiner where it says so.
struct PassState {
  config::ExpirationSettings settings;  // reportOnly is the effective one
  bool emailedToday = false;            // bEmailRunToday
  bool mayEmail = true;                 // bEmailUserOK
  bool intervalMode = false;            // set by the first user of a pass with warning days
  bool directoryBound = false;
  bool smtpFailure = false;
  std::uint32_t upcomingRows = 0;
  std::uint32_t expiredUsers = 0;
  std::uint32_t age = 0;  // days; stays when an account cannot be read
  directory::UserGlobals user;
  ProcessedUsers processed;
  notify::RunReport report;
};

class UserExaminer {
 public:
  UserExaminer(platform::Host host, config::DebugLog& log, directory::DomainDirectory& domain,
               PassState& pass)
      : host_(host), log_(log), domain_(domain), pass_(pass) {}

  // `line` is as it was read; its last character is taken for the line end.
  UserVerdict examine(const PolicyInHand& policy, std::string line);

 private:
  void screenAccount(const std::u16string& name, UserVerdict& verdict);
  void claimUser(const std::u16string& name, UserVerdict& verdict);
  void readAge(const std::u16string& name);
  void warn(const PolicyInHand& policy, const std::u16string& name, UserVerdict& verdict);
  void lookUpEmail(const PolicyInHand& policy, const std::u16string& name);
  bool matchesWarningDay(std::int32_t countdown);
  std::string refusalText(const PolicyInHand& policy) const;
  void sendWarning(std::int32_t countdown, bool onWarningDay, UserVerdict& verdict);
  void expire(const PolicyInHand& policy, const std::u16string& name, UserVerdict& verdict);
  notify::ReportUser reportUser(const PolicyInHand& policy) const;

  platform::Host host_;
  config::DebugLog& log_;
  directory::DomainDirectory& domain_;
  PassState& pass_;
};

}  // namespace service
