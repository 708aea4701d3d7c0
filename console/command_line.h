// The command line of pwlapse: what the declarations of its commands share. A command is a function
// that declares it and its options, in a file of its own (NAME_options.cpp), and a row of the list
// in main.cpp.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>

#include "console/site.h"

namespace console {

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

// Breaks the descriptions in the help of a command and its subcommands to lines of 80 characters.
// To be set before the subcommands are added.
void makeHelpNarrow(CLI::App& app);

// Options that several commands have.
void addRegistryOption(CLI::App& command, std::string& file);
void addDirectoryOption(CLI::App& command, std::string& uri);
void addWorkDirOption(CLI::App& command, std::string& folder);
CLI::Option* addSetOption(CLI::App& command, std::vector<std::string>& settings);
CLI::Option* addFormatOption(CLI::App& command, Format& format);
// All of the above.
void addQuestionOptions(CLI::App& command, QuestionOptions& options);

// The commands.
void addRun(CLI::App& app, Chosen& chosen);
void addDemo(CLI::App& app, Chosen& chosen);
void addCatch(CLI::App& app, Chosen& chosen);
void addSettings(CLI::App& app, Chosen& chosen);
void addPolicies(CLI::App& app, Chosen& chosen);
void addInit(CLI::App& app, Chosen& chosen);
void addCheck(CLI::App& app, Chosen& chosen);
void addProtectSecret(CLI::App& app, Chosen& chosen);
void addMx(CLI::App& app, Chosen& chosen);
void addPreview(CLI::App& app, Chosen& chosen);
void addTestMail(CLI::App& app, Chosen& chosen);
void addForecast(CLI::App& app, Chosen& chosen);
void addList(CLI::App& app, Chosen& chosen);
void addExplain(CLI::App& app, Chosen& chosen);
void addStatus(CLI::App& app, Chosen& chosen);

}  // namespace console
