// `pwlapse explain`: its options.
#include "console/command_line.h"
#include "console/commands.h"

namespace console {

void addExplain(CLI::App& app, Chosen& chosen) {
  const auto options = std::make_shared<ExplainOptions>();
  CLI::App& explain =
      addCommand(app, chosen, "explain", "Say why a pass does with a user what it does",
                 explainCommand, options);
  explain.add_option("user", options->user, "A logon name")->type_name("USER")->required();
  addQuestionOptions(explain, options->question);
}

}  // namespace console
