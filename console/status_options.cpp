// `pwlapse status`: its options.
#include "console/command_line.h"
#include "console/commands.h"

namespace console {

void addStatus(CLI::App& app, Chosen& chosen) {
  const auto options = std::make_shared<StatusOptions>();
  CLI::App& status = addCommand(app, chosen, "status", "Show how the last pass went, and the next",
                                statusCommand, options);
  addWorkDirOption(status, options->workDir);
  status
      .add_option("--max-age", options->maxAge,
                  "How long ago the last pass may have ended: 90m, 26h (default), 3d")
      ->type_name("TIME");
  addFormatOption(status, options->format);
}

}  // namespace console
