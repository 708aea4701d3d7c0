// pwlapse, the administrator's companion of the password expiration service: its command line.
#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "console/command_line.h"
#include "console/commands.h"
#include "platform/system/process.h"
#include "platform/system/terminal.h"

namespace {

// In the order of the help.
constexpr void (*kCommands[])(CLI::App&, console::Chosen&) = {
    console::addRun,      console::addDemo,   console::addCatch,         console::addSettings,
    console::addPolicies, console::addMx,     console::addPreview,       console::addTestMail,
    console::addForecast, console::addStatus, console::addList,          console::addExplain,
    console::addCheck,    console::addInit,   console::addProtectSecret,
};

bool isCommand(const CLI::App& app, const std::string& name) {
  const std::vector<const CLI::App*> commands = app.get_subcommands(nullptr);
  return std::any_of(commands.begin(), commands.end(),
                     [&name](const CLI::App* command) { return command->check_name(name); });
}

// The exit status, as that of the command unless its output cannot be written.
int afterOutput(platform::AnsiTerminal& terminal, int status) {
  return terminal.finish() ? status : console::refuse("the output cannot be written");
}

}  // namespace

int main(int argc, char** argv) {
  platform::hardenProcess();
  platform::AnsiTerminal terminal;
  CLI::App app("Warns domain users before their passwords expire; one pass now, or a demo.",
               "pwlapse");
  app.set_version_flag("--version", "pwlapse 6.2.0");
  app.require_subcommand(0, 1);
  console::makeHelpNarrow(app);
  console::Chosen chosen;
  for (const auto add : kCommands) add(app, chosen);
  const std::string help = " (see pwlapse --help)";
  std::vector<std::string> arguments = platform::commandLineArguments(argc, argv);
  const std::string first = arguments.empty() ? "" : arguments.front();
  if (!first.empty() && first[0] != '-' && !isCommand(app, first)) {
    return console::refuse("there is no command \"" + first + "\"" + help);
  }
  try {
    std::reverse(arguments.begin(), arguments.end());  // as it takes them
    app.parse(std::move(arguments));
  } catch (const CLI::ParseError& error) {
    // --help and --version
    if (error.get_exit_code() == 0) return afterOutput(terminal, app.exit(error));
    return console::refuse(error.what() + help);
  }
  if (!chosen) return console::refuse("a command is needed, such as \"run\"" + help);
  return afterOutput(terminal, chosen());
}
