// How the last pass went, and what is to come: the options of `pwlapse status` and `forecast`.
#include "console/command_line.h"
#include "console/commands.h"

namespace console {

void addForecast(CLI::App& app, Chosen& chosen) {
  constexpr int kMostDays = 3650;
  const auto options = std::make_shared<ForecastOptions>();
  CLI::App& forecast =
      addCommand(app, chosen, "forecast", "Show how many passwords reach their age on which day",
                 forecastCommand, options);
  addQuestionOptions(forecast, options->question);
  forecast.add_option("--days", options->days, "How many days ahead (default: 90)")
      ->type_name("N")
      ->check(CLI::Range(1, kMostDays).description(""));
  forecast.add_option("--html", options->htmlFile, "Write it as a page with a chart, too")
      ->type_name("FILE");
}

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
