// The command that looks for mistakes: its options.
#include "console/command_line.h"
#include "console/commands.h"

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

}  // namespace console
