// The commands that make passes and receive mail, and the smaller ones: their options.
#include "console/command_line.h"
#include "console/commands.h"

namespace console {

void addRun(CLI::App& app, Chosen& chosen) {
  const auto options = std::make_shared<RunOptions>();
  CLI::App& run = addCommand(app, chosen, "run", "Make one whole pass now", runCommand, options);
  addRegistryOption(run, options->registryFile);
  addDirectoryOption(run, options->directoryUri);
  addWorkDirOption(run, options->workDir);
  CLI::Option* const dry =
      run.add_flag("--dry-run", options->dryRun,
                   "Say what a pass would do; nothing is mailed, forced or written");
  run.add_option("--report", options->reportFile, "Of a dry run: write its report to this file")
      ->type_name("FILE")
      ->needs(dry);
  addSetOption(run, options->settings)->needs(dry);
  addFormatOption(run, options->format)->needs(dry);
  run.add_flag("--debug", options->debug, "Write the debug log, whatever the registry says")
      ->excludes(dry);
}

void addDemo(CLI::App& app, Chosen& chosen) {
  const auto options = std::make_shared<DemoOptions>();
  addCommand(app, chosen, "demo", "Make a sample site, run a pass over it, show what it did",
             demoCommand, options)
      .add_option("--work-dir", options->workDir, "Where to make the site (default: a new folder)")
      ->type_name("DIR");
}

void addCatch(CLI::App& app, Chosen& chosen) {
  const auto options = std::make_shared<CatchOptions>();
  CLI::App& catcher =
      addCommand(app, chosen, "catch", "Accept mail on loopback and save it, to try things out",
                 catchCommand, options);
  catcher.add_option("--port", options->port, "Port to listen on; 0 picks a free one")
      ->type_name("N")
      ->required();
  catcher.add_option("--dir", options->directory, "Where to save the mails")
      ->type_name("DIR")
      ->required();
}

void addSettings(CLI::App& app, Chosen& chosen) {
  const auto options = std::make_shared<SettingsOptions>();
  addRegistryOption(
      addCommand(app, chosen, "settings", "Show the edition in use, its key and its switches",
                 settingsCommand, options),
      options->registryFile);
}

void addPolicies(CLI::App& app, Chosen& chosen) {
  const auto options = std::make_shared<PoliciesOptions>();
  CLI::App& policies = addCommand(
      app, chosen, "policies", "Show every policy as a pass loads it, in the order of its visits",
      policiesCommand, options);
  addRegistryOption(policies, options->registryFile);
  policies.add_flag("--short", options->shortForm, "The short printout");
}

void addMx(CLI::App& app, Chosen& chosen) {
  const auto options = std::make_shared<MxOptions>();
  addCommand(app, chosen, "mx", "Show the mail exchangers of a domain, best first", mxCommand,
             options)
      .add_option("domain", options->domainOrAddress, "A domain or an e-mail address")
      ->type_name("DOMAIN-OR-ADDRESS")
      ->required();
}

}  // namespace console
