// What a pass knows as a whole while it is made: one object, made anew for each pass. Filled by the
// pass, changed by the examiner where it says so.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "config/audit_log.h"
#include "config/expiration_settings.h"
#include "config/pass_files.h"
#include "notify/mail_templates.h"
#include "notify/mailer.h"
#include "notify/run_report.h"
#include "notify/warning_email.h"
#include "platform/host/host.h"
#include "service/pass_record.h"
#include "service/processed_users.h"
#include "service/warning_memory.h"

namespace service {

// A user who was examined and whose outcome is known at the end of the pass only.
struct HeldUser {
  notify::UserRecord user;
  std::string listName;  // as PassRecord::addUser takes it
};

struct PassState {
  explicit PassState(notify::PassMode passMode)
      : mode(passMode), memory(passMode), report(passMode) {
    record.mode = passMode;
  }

  // How often a mail that was refused for now is tried again.
  std::uint32_t mostRetries() const {
    constexpr std::uint32_t kMost = 10;  // the delay doubles: a larger number would be years
    return std::min(settings.smtpRetries, kMost);
  }
  // Before a round of tries of the mails that were refused for now, the first of which is 0.
  std::uint64_t retryDelayMs(std::uint32_t round) const {
    constexpr std::uint64_t kMsPerSecond = 1000;
    return (settings.smtpRetryDelay * kMsPerSecond) << round;
  }
  // What its mails need; borrows all of it. `host` and `log` are the pass's.
  notify::WarningContext mailContext(platform::Host host, config::DebugLog& log) {
    return {host.registry, host.clock,      log,     settings,
            *templates,    record.findings, *mailer, unsavedMailingDay};
  }

  notify::PassMode mode;
  config::ExpirationSettings settings;  // reportOnly is the effective one
  bool emailedToday = false;            // bEmailRunToday
  bool mayEmail = true;                 // bEmailUserOK
  bool intervalMode = false;            // set by the first user of a pass with warning days
  // Day of month of a mailing that the registry did not take; 0: none.
  std::uint32_t unsavedMailingDay = 0;
  bool expiresNobody = false;   // the directory's clock is too far off
  std::uint32_t ageBefore = 0;  // days, of the user before: one who cannot be read keeps it
  ProcessedUsers processed;
  std::vector<HeldUser> held;  // in the order in which they were examined
  WarningMemory memory;
  std::unique_ptr<notify::Mailer> mailer;  // from when the settings are known, as the templates
  std::unique_ptr<notify::MailTemplates> templates;
  std::uint32_t retriesLeft = 0;  // rounds in which mails that wait are tried again
  int unansweredWrites = 0;       // in a row, of expiries, by the directory
  notify::RunReport report;
  PassRecord record;
  config::AuditLog skipList{written(config::kSkipListFile), record.findings};
  config::AuditLog expiringSoonLog{written(config::kExpiringSoonLog), record.findings};
  config::AuditLog expiredLog{written(config::kExpiredPasswordLog), record.findings};

 private:
  // A dry pass writes no log.
  const char* written(const char* file) const {
    return mode == notify::PassMode::Live ? file : nullptr;
  }
};

}  // namespace service
