// The one e-mail that warns a user that the password expires in some days, or has expired; and the
// record of the day of the mailing. Used by the pass, once per user who is due a warning, and in
// test mode.
#pragma once

#include <string>

#include "config/debug_log.h"
#include "config/expiration_settings.h"
#include "directory/user_directory_data.h"
#include "platform/registry/registry.h"
#include "platform/system/clock.h"

namespace notify {

// What a warning is made of beside its recipient. Borrowed from the pass.
struct WarningContext {
  platform::Registry& registry;
  platform::Clock& clock;
  config::DebugLog& log;
  const config::ExpirationSettings& settings;
  const directory::UserGlobals& user;  // first and last name
};

// Sends the warning; blocks for as long as the mail server takes. False when sending failed, which
// leaves kMailErrorFile. `countdown` is in days; below 1 the password has expired. The day of month
// is recorded in the registry before the send, whatever comes of it.
bool sendWarningEmail(const WarningContext& context, const std::string& username,
                      const std::string& address, int countdown);

}  // namespace notify
