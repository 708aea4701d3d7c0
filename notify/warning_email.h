// The one e-mail that warns a user that the password expires in some days, or has expired; and the
// record of the day of the mailing. Used by the pass, once per user who is due a warning, and in
// test mode.
#pragma once

#include <cstdint>
#include <string>

#include "config/debug_log.h"
#include "config/expiration_settings.h"
#include "config/findings.h"
#include "notify/mail_templates.h"
#include "notify/mailer.h"
#include "notify/user_record.h"
#include "platform/registry/registry.h"
#include "platform/system/clock.h"

namespace notify {

// What a warning needs beside its user. Borrowed from the pass.
struct WarningContext {
  platform::Registry& registry;
  platform::Clock& clock;
  config::DebugLog& log;
  const config::ExpirationSettings& settings;
  const MailTemplates& templates;
  config::Findings& findings;
  Mailer& mailer;
  // Out: the day of month of this mailing when the registry did not take it, 0 when it did. Only
  // the first failure of a pass is reported.
  std::uint32_t& unsavedMailingDay;
};

// The user whom a test mail is about.
UserRecord placeholderUser(const std::string& address);

// Why a warning has no text: a template that is there cannot be used.
inline constexpr const char* kTemplateLost = "its template cannot be used";

// Composes the warning, whose custom message is in lines already (messageLines). With less than one
// day left the password has expired. False when its template cannot be used; the email is then
// empty.
bool composeWarning(kelvado::KvEmail& email, const config::ExpirationSettings& settings,
                    const MailTemplates& templates, const UserRecord& user, platform::Clock& clock,
                    config::DebugLog& log);

// What the warning is made from, and why, in one line for an administrator.
std::string warningSource(const MailTemplates& templates,
                          const config::ExpirationSettings& settings, const UserRecord& user);

// Records the day of this mailing in the registry (expirationLastRunDay).
void recordMailingDay(const WarningContext& context);

// Sends the warning; blocks for as long as the mail server takes. A failed send leaves
// kMailErrorFile. The day of month is recorded in the registry before the send, whatever comes of
// it. When the mail server has been given up nothing of this is done.
MailOutcome sendWarningEmail(const WarningContext& context, const UserRecord& user);

}  // namespace notify
