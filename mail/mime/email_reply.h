// Replies to and forwards of a message. Used by KvEmail.
#pragma once

#include <memory>

#include "base/log_base.h"
#include "mail/mime/email2.h"

namespace kelvado {

// To the Reply-To address, else to the sender; from the first of the original's recipients, with
// "Re: " before the subject, the references of the thread and the quoted text.
std::unique_ptr<Email2> createReplyTo(const Email2& original, base::LogBase& log);

// Without a recipient yet, with "Fwd: " before the subject, the original's main fields above its
// text, and everything that was attached to it.
std::unique_ptr<Email2> createForwardOf(const Email2& original, base::LogBase& log);

}  // namespace kelvado
