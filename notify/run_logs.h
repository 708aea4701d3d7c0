// The words of a pass's plain-text logs: the debug log's header, the list of skipped users and the
// users whose passwords expire soon. Used by the pass only.
#pragma once

#include <cstdint>
#include <string>

#include "base/timestamp.h"
#include "config/debug_log.h"
#include "config/expiration_settings.h"
#include "notify/user_record.h"
#include "platform/system/clock.h"

namespace notify {

// Figures of the debug log's header that are not settings.
struct RunFigures {
  double uptimeSeconds = 0;            // measured once, when the worker started
  std::uint32_t domainMaxAgeDays = 0;  // 0 until known
  std::uint32_t intervalMs = 0;
  bool emailedToday = false;  // the mailing-day guard has fired
};

// Product, domain policy and every setting, none of them secret. `settings.reportOnly` is the
// pass's effective one.
void writeDebugHeader(config::DebugLog& log, const config::ExpirationSettings& settings,
                      const RunFigures& figures, const base::LocalTime& now);

inline constexpr const char* kSkipListHeading = "LIST OF SKIPPED USERS\n";
std::string skippedUserLine(const UserRecord& user);

inline constexpr const char* kExpiringSoonHeading =
    "\"Date of Run\",\"Username\",\"Email\",\"Days before expiration\"\n";
std::string expiringSoonLine(const base::LocalTime& now, const UserRecord& user);

}  // namespace notify
