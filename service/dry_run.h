// A whole pass that does nothing but look: no mail, no forced change, no write to registry, list,
// log or record of warnings, no wait. It may run beside a pass of the service. What a pass would do
// is decided by the pass itself: only its ways to the world lead nowhere.
#pragma once

#include <string>

#include "notify/mail_transport.h"
#include "platform/host/host.h"
#include "service/pass_observer.h"
#include "service/pass_record.h"

namespace service {

struct DryRunOptions {
  std::string reportFile;  // where the report is written; empty: nowhere
  // A logon name: only this user is examined, and the directory need not be read for others. What
  // depends on the number of users (maxExpirations) is then not what a pass would do.
  std::string onlyUser;
  // Gets the mails that would be sent, the report at the end; empty: nobody does, and the report's
  // is not composed. It must take each of them.
  notify::MailTransportMaker transport;
};

// Blocks for as long as the directory takes. `observer` is borrowed and may be null; it gets every
// user's record, as if every mail had been accepted and every forced change taken.
PassRecord makeDryRun(const platform::Host& host, PassObserver* observer,
                      const DryRunOptions& options);

}  // namespace service
