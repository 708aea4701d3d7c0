// The one mail that a manager gets about all users of his whose passwords expire soon. Used by the
// pass, after the mails to the users, and by the preview.
#pragma once

#include <vector>

#include "notify/mail_outcome.h"
#include "notify/warning_email.h"

namespace notify {

// Users with the same manager (data.manager): at least one, in the order of the mail.
using Staff = std::vector<UserRecord>;

// Composes the mail to data.managerEmail, from the template of kManagerTemplates for the manager's
// language, else from a built-in text. A template of a policy counts when all users are of it.
void composeManagerMail(kelvado::KvEmail& email, const config::ExpirationSettings& settings,
                        const MailTemplates& templates, const Staff& staff, platform::Clock& clock);

// Sends it as sendWarningEmail() does: the day is recorded before, a failure leaves kMailErrorFile.
MailOutcome sendManagerMail(const WarningContext& context, const Staff& staff);

}  // namespace notify
