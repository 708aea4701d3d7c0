// Mails the report to the administrator, logo embedded. Used by the pass only.
#pragma once

#include <string>

#include "config/expiration_settings.h"
#include "notify/mailer.h"
#include "notify/pass_mode.h"

namespace notify {

// Blocks for as long as the mail server takes. The logo is the file that a run makes; in a dry run,
// which makes none, the one in the program. A send that failed leaves kMailErrorFile.
MailOutcome sendAdminReport(const config::ExpirationSettings& settings,
                            const std::string& mailReport, PassMode mode, Mailer& mailer);

}  // namespace notify
