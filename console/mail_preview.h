// The mail that a user would get, composed by the code that composes the real one. Used by `pwlapse
// preview` and `pwlapse test-mail`.
#pragma once

#include <optional>
#include <string>

#include "config/expiration_settings.h"
#include "mail/mime/kv_email.h"
#include "notify/mail_templates.h"
#include "notify/user_record.h"
#include "platform/host/host.h"
#include "service/outcome.h"

namespace console {

// The settings that a mail is made and sent by, with the custom message in lines.
config::ExpirationSettings mailSettings(platform::Registry& registry);

struct PreviewedUser {
  notify::UserRecord record;  // with names and address, whether a mail is due or not
  std::string today;          // what a pass would do today, and why
};

// The user as a pass finds him. Nothing, with `error` one line, when no list names him or the
// directory cannot be asked.
std::optional<PreviewedUser> findPreviewedUser(const platform::Host& host,
                                               const std::string& username, std::string& error);

// So that so many days are left.
void setDaysLeft(notify::UserRecord& user, std::int32_t days);

// False, with `error` one line, when the mail would not be sent because of its template.
bool composePreview(kelvado::KvEmail& email, const config::ExpirationSettings& settings,
                    const notify::MailTemplates& templates, const notify::UserRecord& user,
                    platform::Clock& clock, std::string& error);

}  // namespace console
