// `pwlapse test-mail`: sends what `pwlapse preview` shows to one address, and says how the mail
// server took it. The day of the mailing and the logs stay as they are.
#include <cstdio>
#include <memory>
#include <optional>

#include "console/commands.h"
#include "console/mail_preview.h"
#include "notify/access_token.h"
#include "notify/mail_transport.h"
#include "notify/warning_email.h"
#include "platform/text/text_lines.h"

namespace console {
namespace {

// In words, with the server's name where it is known.
std::string failureOf(notify::MailTransport& transport) {
  const kelvado::SmtpFailure failure = transport.failure();
  const std::string reason = kelvado::failureText(failure);
  const std::string text = reason.empty() ? transport.errorXml() : reason;
  return platform::utf8ToAnsi(failure.server.empty() ? text : failure.server + ": " + text);
}

}  // namespace

int testMailCommand(const TestMailOptions& options) {
  std::string error;
  const std::unique_ptr<platform::SystemHost> system = openSite(options.site, error);
  if (!system) return refuse(error);
  const platform::Host host = system->host();
  const config::ExpirationSettings settings = mailSettings(host.registry);
  if (settings.smtpServer.empty()) return refuse("there is no mail server: smtpServer is not set");
  notify::UserRecord user = notify::placeholderUser(options.address);
  if (!options.user.empty()) {
    const std::optional<PreviewedUser> found = findPreviewedUser(host, options.user, error);
    if (!found) return refuse(error);
    user = found->record;
    user.data.email = options.address;
  }
  if (options.days) setDaysLeft(user, *options.days);
  kelvado::KvEmail email;
  const notify::MailTemplates templates(settings);
  if (!composePreview(email, settings, templates, user, host.clock, error)) return refuse(error);
  if (email.GetTo() == nullptr || *email.GetTo() == '\0') {
    return refuse("\"" + options.address + "\" is no e-mail address");
  }
  for (const std::string& problem : notify::findLoginProblems(settings)) {
    std::printf("%s\n", problem.c_str());
  }
  const std::unique_ptr<notify::MailTransport> transport = notify::makeSmtpTransport(settings);
  if (transport->send(email)) {
    std::printf("The mail about %s was accepted for %s.\n", user.username.c_str(),
                options.address.c_str());
    return kExitDone;
  }
  std::printf("The mail was not sent: %s\n", failureOf(*transport).c_str());
  return kExitSomethingFailed;
}

}  // namespace console
