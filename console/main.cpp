// pwlapse, the administrator's companion of the password expiration service: its command line.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "console/commands.h"
#include "platform/host/system_host.h"
#include "platform/system/process.h"
#include "platform/system/terminal.h"

namespace {

// What the command that was named is to do; empty until one was.
using Chosen = std::function<int()>;

// Declares a command with options of its own; `command` gets them filled.
template <typename Options>
CLI::App& addCommand(CLI::App& app, Chosen& chosen, const char* name, const char* help,
                     int (*command)(const Options&), std::shared_ptr<Options> options) {
  CLI::App* added = app.add_subcommand(name, help);
  added->callback(
      [&chosen, command, options] { chosen = [command, options] { return command(*options); }; });
  return *added;
}

void addRegistryOption(CLI::App& command, std::string& file) {
  command.add_option("--registry", file, "Registry file (.reg)")->type_name("FILE");
}

void addRun(CLI::App& app, Chosen& chosen) {
  const auto options = std::make_shared<console::RunOptions>();
  CLI::App& run =
      addCommand(app, chosen, "run", "Make one whole pass now", console::runCommand, options);
  addRegistryOption(run, options->registryFile);
  run.add_option("--directory", options->directoryUri,
                 "Directory, instead of the registry's: " + platform::servedDirectoryAddresses())
      ->type_name("URI");
  run.add_option("--work-dir", options->workDir,
                 "Where templates and lists are read and logs written (default: here)")
      ->type_name("DIR");
  run.add_flag("--debug", options->debug, "Write the debug log, whatever the registry says");
}

void addDemo(CLI::App& app, Chosen& chosen) {
  const auto options = std::make_shared<console::DemoOptions>();
  addCommand(app, chosen, "demo", "Make a sample site, run a pass over it, show what it did",
             console::demoCommand, options)
      .add_option("--work-dir", options->workDir, "Where to make the site (default: a new folder)")
      ->type_name("DIR");
}

void addCatch(CLI::App& app, Chosen& chosen) {
  const auto options = std::make_shared<console::CatchOptions>();
  CLI::App& catcher =
      addCommand(app, chosen, "catch", "Accept mail on loopback and save it, to try things out",
                 console::catchCommand, options);
  catcher.add_option("--port", options->port, "Port to listen on; 0 picks a free one")
      ->type_name("N")
      ->required();
  catcher.add_option("--dir", options->directory, "Where to save the mails")
      ->type_name("DIR")
      ->required();
}

void addSettings(CLI::App& app, Chosen& chosen) {
  const auto options = std::make_shared<console::SettingsOptions>();
  addRegistryOption(
      addCommand(app, chosen, "settings", "Show the edition in use, its key and its switches",
                 console::settingsCommand, options),
      options->registryFile);
}

void addPolicies(CLI::App& app, Chosen& chosen) {
  const auto options = std::make_shared<console::PoliciesOptions>();
  CLI::App& policies = addCommand(
      app, chosen, "policies", "Show every policy as a pass loads it, in the order of its visits",
      console::policiesCommand, options);
  addRegistryOption(policies, options->registryFile);
  policies.add_flag("--short", options->shortForm, "The short printout");
}

void addMx(CLI::App& app, Chosen& chosen) {
  const auto options = std::make_shared<console::MxOptions>();
  addCommand(app, chosen, "mx", "Show the mail exchangers of a domain, best first",
             console::mxCommand, options)
      .add_option("domain", options->domainOrAddress, "A domain or an e-mail address")
      ->type_name("DOMAIN-OR-ADDRESS")
      ->required();
}

bool isCommand(const CLI::App& app, const std::string& name) {
  const std::vector<const CLI::App*> commands = app.get_subcommands(nullptr);
  return std::any_of(commands.begin(), commands.end(),
                     [&name](const CLI::App* command) { return command->check_name(name); });
}

// The exit status, as that of the command unless its output cannot be written.
int afterOutput(int status) {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
  return console::refuse("the output cannot be written");
}

}  // namespace

int main(int argc, char** argv) {
  platform::hardenProcess();
  const platform::AnsiTerminal terminal;
  CLI::App app("Warns domain users before their passwords expire; one pass now, or a demo.",
               "pwlapse");
  app.set_version_flag("--version", "pwlapse 6.2.0");
  app.require_subcommand(0, 1);
  Chosen chosen;
  for (const auto add : {addRun, addDemo, addCatch, addSettings, addPolicies, addMx}) {
    add(app, chosen);
  }
  const std::string help = " (see pwlapse --help)";
  const std::string first = argc > 1 ? argv[1] : "";
  if (!first.empty() && first[0] != '-' && !isCommand(app, first)) {
    return console::refuse("there is no command \"" + first + "\"" + help);
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // --help and --version
    if (error.get_exit_code() == 0) return afterOutput(app.exit(error));
    return console::refuse(error.what() + help);
  }
  if (!chosen) return console::refuse("a command is needed, such as \"run\"" + help);
  return afterOutput(chosen());
}
