// The commands that set a site up and look for mistakes in it: their options.
#include <algorithm>
#include <iterator>

#include "console/command_line.h"
#include "console/commands.h"
#include "platform/host/system_host.h"

namespace console {

void addCheck(CLI::App& app, Chosen& chosen) {
  const auto options = std::make_shared<CheckOptions>();
  CLI::App& check = addCommand(app, chosen, "check",
                               "Look for mistakes in settings, lists, templates, directory, mail "
                               "server and work folder; nothing is sent or written",
                               checkCommand, options);
  addQuestionOptions(check, options->question);
  check
      .add_option("--only", options->only,
                  "Only these parts: settings,lists,templates,directory,mail,folder")
      ->type_name("PART,...")
      ->delimiter(',');
}

void addInit(CLI::App& app, Chosen& chosen) {
  const auto options = std::make_shared<InitOptions>();
  CLI::App& init =
      addCommand(app, chosen, "init",
                 "Write a settings file for your domain; asks for what is not given, and "
                 "never overwrites",
                 initCommand, options);
  init.add_option("file", options->file, "The settings file to write")
      ->type_name("FILE")
      ->required();
  struct TextOption {
    const char* option;
    std::string* value;
    const char* type;
    const char* help;
  };
  // Where only the machine's own domain is served, there is no choice to be made of it.
  const TextOption ofTheDirectory[] = {
      {"--directory", &options->directoryUri, "HOST-OR-URI", "Domain controller"},
      {"--bind-user", &options->bindUser, "NAME", "Account to read it with (default: Kerberos)"},
      {"--bind-password-file", &options->bindPasswordFile, "FILE",
       "Its password, in the first line"},
      {"--ca-file", &options->caFile, "FILE", "Authority of the controller's certificate (PEM)"},
      {"--trust", &options->trust, "SHA-256", "Store the authority with this fingerprint"},
  };
  const TextOption ofTheMails[] = {
      {"--mail-server", &options->mailServer, "HOST", "Mail server"},
      {"--smtp-user", &options->smtpUser, "NAME", "User name for its login (default: no login)"},
      {"--smtp-password-file", &options->smtpPasswordFile, "FILE",
       "The password, in the first line"},
      {"--sender", &options->sender, "ADDRESS", "Sender of all mails"},
      {"--administrator", &options->administrator, "ADDRESS", "Who gets the report"},
  };
  const auto add = [&init](const TextOption& text) {
    init.add_option(text.option, *text.value, text.help)->type_name(text.type);
  };
  if (platform::servesLdap()) {
    std::for_each(std::begin(ofTheDirectory), std::end(ofTheDirectory), add);
  }
  std::for_each(std::begin(ofTheMails), std::end(ofTheMails), add);
  init.add_option("--warning-days", options->warnings, "Days before the end, such as 14,7,1")
      ->type_name("DAYS")
      ->delimiter(',')
      ->expected(1, 3);
  CLI::Option* const reportOnly = init.add_flag_callback(
      "--report-only", [] {}, "Nobody is mailed or forced until you change the file (the default)");
  init.add_flag("--live", options->live, "Users are mailed and forced from the first pass on")
      ->excludes(reportOnly);
  init.add_option("--max-age", options->maxAge, "Maximum password age (default: the domain's own)")
      ->type_name("DAYS");
}

void addProtectSecret(CLI::App& app, Chosen& chosen) {
  const auto options = std::make_shared<ProtectSecretOptions>();
  addCommand(app, chosen, "protect-secret",
             "Write a password, typed or from standard input, into a file that only the service "
             "can use",
             protectSecretCommand, options)
      .add_option("file", options->file, "The file to write or replace")
      ->type_name("FILE")
      ->required();
}

}  // namespace console
