// pwlapse, the administrator's companion of the password expiration service: its command line.
#include <CLI/CLI.hpp>
#include <cstdio>

#include "console/commands.h"
#include "platform/system/process.h"
#include "platform/system/terminal.h"

int main(int argc, char** argv) {
  platform::keepMemoryPrivate();
  const platform::AnsiTerminal terminal;
  CLI::App app("Warns domain users before their passwords expire; one pass now, or a demo.",
               "pwlapse");
  app.set_version_flag("--version", "pwlapse 6.2.0");
  app.require_subcommand(1);

  console::RunOptions run;
  CLI::App* runApp = app.add_subcommand("run", "Make one whole pass now");
  runApp->add_option("--registry", run.registryFile, "Registry file (.reg)")->type_name("FILE");
  runApp
      ->add_option("--directory", run.directoryUri,
                   "Directory, instead of the registry's: ldap://, ldaps://, ldapi://, ldif:PATH")
      ->type_name("URI");
  runApp
      ->add_option("--work-dir", run.workDir,
                   "Where templates and lists are read and logs written (default: here)")
      ->type_name("DIR");
  runApp->add_flag("--debug", run.debug, "Write the debug log, whatever the registry says");

  console::DemoOptions demo;
  CLI::App* demoApp =
      app.add_subcommand("demo", "Make a sample site, run a pass over it, show what it did");
  demoApp->add_option("--work-dir", demo.workDir, "Where to make the site (default: a new folder)")
      ->type_name("DIR");

  console::CatchOptions catcher;
  CLI::App* catchApp =
      app.add_subcommand("catch", "Accept mail on loopback and save it, to try things out");
  catchApp->add_option("--port", catcher.port, "Port to listen on; 0 picks a free one")
      ->type_name("N")
      ->required();
  catchApp->add_option("--dir", catcher.directory, "Where to save the mails")
      ->type_name("DIR")
      ->required();

  console::SettingsOptions settings;
  CLI::App* settingsApp =
      app.add_subcommand("settings", "Show the edition in use, its key and its switches");
  settingsApp->add_option("--registry", settings.registryFile, "Registry file (.reg)")
      ->type_name("FILE");

  console::PoliciesOptions policies;
  CLI::App* policiesApp = app.add_subcommand(
      "policies", "Show every policy as a pass loads it, in the order of its visits");
  policiesApp->add_option("--registry", policies.registryFile, "Registry file (.reg)")
      ->type_name("FILE");
  policiesApp->add_flag("--short", policies.shortForm, "The short printout");

  console::MxOptions mx;
  CLI::App* mxApp = app.add_subcommand("mx", "Show the mail exchangers of a domain, best first");
  mxApp->add_option("domain", mx.domainOrAddress, "A domain or an e-mail address")
      ->type_name("DOMAIN-OR-ADDRESS")
      ->required();

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
    return console::refuse(std::string(error.what()) + " (pwlapse --help tells more)");
  }
  const auto command = [&] {
    if (runApp->parsed()) return console::runCommand(run);
    if (demoApp->parsed()) return console::demoCommand(demo);
    if (settingsApp->parsed()) return console::settingsCommand(settings);
    if (policiesApp->parsed()) return console::policiesCommand(policies);
    if (mxApp->parsed()) return console::mxCommand(mx);
    return console::catchCommand(catcher);
  };
  const int status = command();
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
  return console::refuse("the output cannot be written");
}
