// The mails before they are sent: the options of `pwlapse preview` and `test-mail`.
#include "console/command_line.h"
#include "console/commands.h"

namespace console {
namespace {

void addDaysOption(CLI::App& command, std::optional<std::int32_t>& days) {
  command.add_option("--days", days, "As if so many days were left")->type_name("N");
}

}  // namespace

void addPreview(CLI::App& app, Chosen& chosen) {
  const auto options = std::make_shared<PreviewOptions>();
  CLI::App& preview = addCommand(app, chosen, "preview", "Show the mail that a user would get",
                                 previewCommand, options);
  preview.add_option("user", options->user, "Logon name")->type_name("USER");
  preview.add_flag("--report", options->report, "The administrator's report instead");
  preview.add_flag("--manager", options->manager, "The mail to the user's manager instead");
  addDaysOption(preview, options->days);
  preview.add_option("--eml", options->emlFile, "Write the mail to a file")->type_name("FILE");
  preview.add_option("--html", options->htmlFile, "Write its HTML to a file")->type_name("FILE");
  addQuestionOptions(preview, options->question);
}

void addTestMail(CLI::App& app, Chosen& chosen) {
  const auto options = std::make_shared<TestMailOptions>();
  CLI::App& mail = addCommand(app, chosen, "test-mail",
                              "Send such a mail to an address of yours, and say how it went",
                              testMailCommand, options);
  mail.add_option("address", options->address, "Who gets it")->type_name("ADDRESS")->required();
  mail.add_option("--user", options->user, "Whom it is about (default: a placeholder)")
      ->type_name("USER");
  addDaysOption(mail, options->days);
  addRegistryOption(mail, options->site.registryFile);
  addDirectoryOption(mail, options->site.directoryUri);
  addWorkDirOption(mail, options->site.workDir);
  addSetOption(mail, options->site.settings);
}

}  // namespace console
