#include "console/command_line.h"

#include <map>
#include <sstream>

#include "platform/host/system_host.h"

namespace console {
namespace {

constexpr int kHelpWidth = 80;

class NarrowHelp final : public CLI::Formatter {
 public:
  std::string make_description(const CLI::App* command) const override {
    return TextStyle{kHelpWidth, false}.paragraph("", 0, command->get_description());
  }
  std::string make_option_desc(const CLI::Option* option) const override {
    return broken(CLI::Formatter::make_option_desc(option));
  }
  std::string make_subcommand(const CLI::App* command) const override {
    std::ostringstream out;
    CLI::detail::format_help(out, command->get_display_name(true),
                             broken(command->get_description()), get_column_width());
    return out.str();
  }

 private:
  std::string broken(const std::string& description) const {
    const TextStyle style{kHelpWidth - static_cast<int>(get_column_width()), false};
    std::string lines = style.paragraph("", 0, description);
    lines.pop_back();
    return lines;
  }
};

}  // namespace

void makeHelpNarrow(CLI::App& app) {
  app.formatter(std::make_shared<NarrowHelp>());
}

void addRegistryOption(CLI::App& command, std::string& file) {
  command.add_option("--registry", file, "Registry file (.reg)")->type_name("FILE");
}

void addDirectoryOption(CLI::App& command, std::string& uri) {
  command
      .add_option("--directory", uri,
                  "Directory, instead of the registry's: " + platform::servedDirectoryAddresses())
      ->type_name("URI");
}

void addWorkDirOption(CLI::App& command, std::string& folder) {
  command
      .add_option(
          "--work-dir", folder,
          "Folder of templates, lists and logs (default: the service's workFolder, or here)")
      ->type_name("DIR");
}

CLI::Option* addSetOption(CLI::App& command, std::vector<std::string>& settings) {
  return command
      .add_option("--set", settings,
                  "What if a setting had this value, such as Policy1.maxPasswordAge=60; may be "
                  "given several times, and changes nothing")
      ->type_name("NAME=VALUE")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

CLI::Option* addFormatOption(CLI::App& command, Format& format) {
  static const std::map<std::string, Format> kFormats = {
      {"text", Format::Text}, {"json", Format::Json}, {"csv", Format::Csv}};
  return command.add_option("--format", format, "text (default), json or csv")
      ->type_name("FORMAT")
      ->transform(CLI::Transformer(kFormats, CLI::ignore_case).description(""))
      ->check(CLI::IsMember({Format::Text, Format::Json, Format::Csv}).description(""));
}

void addQuestionOptions(CLI::App& command, QuestionOptions& options) {
  addRegistryOption(command, options.site.registryFile);
  addDirectoryOption(command, options.site.directoryUri);
  addWorkDirOption(command, options.site.workDir);
  addSetOption(command, options.site.settings);
  addFormatOption(command, options.format);
}

}  // namespace console
