// Mails the report to the administrator, logo embedded. Used by the pass only.
#pragma once

#include <string>

#include "config/expiration_settings.h"

namespace notify {

// Blocks for as long as the mail server takes. False when the logo could not be embedded or the
// mail not be sent; a failed send leaves kMailErrorFile.
bool sendAdminReport(const config::ExpirationSettings& settings, const std::string& mailReport);

}  // namespace notify
