// Mails the report to the administrator, logo embedded. Used by the pass only.
#pragma once

#include <string>

#include "config/expiration_settings.h"
#include "notify/mailer.h"

namespace notify {

// Blocks for as long as the mail server takes. A send that failed leaves kMailErrorFile.
MailOutcome sendAdminReport(const config::ExpirationSettings& settings,
                            const std::string& mailReport, Mailer& mailer);

}  // namespace notify
