// Mails the report to the administrator, logo embedded. Used by the pass, and by who shows what it
// would mail.
#pragma once

#include <string>

#include "config/expiration_settings.h"
#include "mail/mime/kv_email.h"
#include "notify/mailer.h"

namespace notify {

// Where the embedded logo is taken from: the file that a run makes, or, for who only looks, the
// program.
enum class LogoFrom { File, Memory };

// Composes the mail. Empty, or why it cannot be composed, in one line.
std::string composeAdminReport(kelvado::KvEmail& email, const config::ExpirationSettings& settings,
                               const std::string& mailReport, LogoFrom from);

// Blocks for as long as the mail server takes. A send that failed leaves kMailErrorFile.
MailOutcome sendAdminReport(const config::ExpirationSettings& settings,
                            const std::string& mailReport, Mailer& mailer);

}  // namespace notify
