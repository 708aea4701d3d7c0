// The mail-sending object as the expiration settings want it.
// Used by the mails of a pass, and to look at a mail server without mailing.
#pragma once

#include <string>

#include "config/expiration_settings.h"
#include "mail/mime/kv_email.h"
#include "mail/smtp/kv_mail_man.h"

namespace notify {

// The product's code for the mail component.
inline constexpr const char* kMailUnlockCode = "NRVPasswordExpiration";

// Server, credentials (also when empty) and the way to connect. Returns why the file with the
// password cannot be used, in one line; empty when it can, or none is wanted.
std::string configureMailMan(kelvado::KvMailMan& mailMan,
                             const config::ExpirationSettings& settings);

// Says that a program wrote the mail (RFC 3834 section 5), where the settings want that.
void markAutomatic(kelvado::KvEmail& email, const config::ExpirationSettings& settings);

}  // namespace notify
