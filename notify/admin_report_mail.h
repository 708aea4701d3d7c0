// Mails the report to the administrators. Used by the pass; the addresses by the check of the
// settings, too.
#pragma once

#include <string>
#include <vector>

#include "config/expiration_settings.h"
#include "notify/mailer.h"
#include "notify/pass_mode.h"
#include "notify/run_report.h"

namespace notify {

// The addresses of adminEmailAddress (ANSI), in UTF-8; there may be ones among them that no mail
// can be sent to.
std::vector<std::string> adminAddresses(const std::string& setting);

// What is wrong with one of several addresses, in the ANSI code page: it gets no report.
std::vector<std::string> findAdminAddressProblems(const config::ExpirationSettings& settings);

// One mail to all of them. Blocks for as long as the mail server takes. The logo, where there is to
// be one (mailHasLogo()), is the file that a run makes; in a dry run, which makes none, the one in
// the program. A send that failed leaves kMailErrorFile. `report` is finished.
MailOutcome sendAdminReport(const config::ExpirationSettings& settings, const RunReport& report,
                            PassMode mode, Mailer& mailer);

}  // namespace notify
