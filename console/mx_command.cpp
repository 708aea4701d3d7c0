// `pwlapse mx`: the hosts that take a domain's mail, to see where a mail server would hand it on.
#include <cstdio>
#include <vector>

#include "base/log_null.h"
#include "console/commands.h"
#include "mail/smtp/mx_lookup.h"
#include "mail/smtp/wire_text.h"

namespace console {

int mxCommand(const MxOptions& options) {
  base::LogNull log;
  std::string domain;
  const bool understood = kelvado::domainOf(options.domainOrAddress, domain, log);
  if (!understood || domain.empty() || !kelvado::isSafeWord(domain)) {
    return refuse("mx: neither a domain nor an e-mail address");
  }
  const std::vector<platform::MxRecord> hosts =
      kelvado::lookupMx(platform::systemDns(), domain, log);
  for (const platform::MxRecord& host : hosts) std::printf("%s\n", host.host.c_str());
  if (!hosts.empty()) return kExitDone;
  std::fprintf(stderr, "pwlapse: no mail exchanger of %s was found\n", domain.c_str());
  return kExitSomethingFailed;
}

}  // namespace console
