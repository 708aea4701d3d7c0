// `pwlapse list`: its options.
#include "console/command_line.h"
#include "console/commands.h"
#include "console/user_rows.h"

namespace console {

void addList(CLI::App& app, Chosen& chosen) {
  const auto options = std::make_shared<ListOptions>();
  CLI::App& list = addCommand(
      app, chosen, "list", "Show every user, and what a pass would do today", listCommand, options);
  list.add_option("--due", options->due, "Whose password has at most so many days left")
      ->type_name("DAYS");
  list.add_option("--policy", options->policy, "Whom this policy has: Policy1, or its policyName")
      ->type_name("NAME");
  const std::vector<std::string> outcomes = outcomeCodes();
  list.add_option("--outcome", options->outcomes,
                  "Whose day comes to one of these: " + CLI::detail::join(outcomes, ", "))
      ->type_name("OUTCOME")
      ->check(CLI::IsMember(outcomes).description(""));
  list.add_flag("--no-address", options->noAddress, "Who has no e-mail address, or no surname");
  list.add_option("--user", options->users, "These users, whatever the other options say")
      ->type_name("NAME");
  list.add_option("--sort", options->sort, "left (default), user, policy, age, address or outcome")
      ->type_name("COLUMN")
      ->check(
          CLI::IsMember({"left", "user", "policy", "age", "address", "outcome"}).description(""));
  addQuestionOptions(list, options->question);
}

}  // namespace console
