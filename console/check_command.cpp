// `pwlapse check`: everything about a site that can be known before a pass is made, a line each.
#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>

#include "base/ascii.h"
#include "check/checks.h"
#include "console/commands.h"

namespace console {
namespace {

using check::Level;
using check::Part;

struct PartName {
  Part part;
  const char* name;     // of --only, JSON and CSV
  const char* heading;  // for people
};
constexpr PartName kParts[] = {
    {Part::Settings, "settings", "Settings"},    {Part::Lists, "lists", "Lists of users"},
    {Part::Templates, "templates", "Templates"}, {Part::Directory, "directory", "Directory"},
    {Part::Mail, "mail", "Mail server"},         {Part::Folder, "folder", "Work folder"},
};

const PartName& nameOf(Part part) {
  return *std::find_if(std::begin(kParts), std::end(kParts),
                       [part](const PartName& one) { return one.part == part; });
}

struct LevelName {
  const char* name;   // in JSON and CSV
  const char* label;  // for people
  Tone tone;
};

LevelName nameOf(Level level) {
  switch (level) {
    case Level::Ok:
      return {"ok", "ok", Tone::Good};
    case Level::Note:
      return {"note", "note", Tone::Note};
    case Level::Fault:
      break;
  }
  return {"fault", "FAULT", Tone::Bad};
}

std::string lineOf(const check::Finding& finding, const TextStyle& style) {
  constexpr std::size_t kIndent = 9;
  const LevelName level = nameOf(finding.level);
  const std::string label(level.label);
  const std::string first =
      "  " + style.painted(level.tone, label) + std::string(kIndent - 2 - label.size(), ' ');
  std::string text = style.paragraph(first, kIndent, finding.subject + ": " + finding.text);
  if (finding.cure.empty()) return text;
  return text + style.paragraph(std::string(kIndent, ' ') + "-> ", kIndent + 3, finding.cure);
}

std::size_t countOf(const std::vector<check::Finding>& findings, Level level) {
  return static_cast<std::size_t>(
      std::count_if(findings.begin(), findings.end(),
                    [level](const check::Finding& one) { return one.level == level; }));
}

std::string counted(std::size_t count, const char* noun) {
  return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

// Shows a part at once where people wait for it: the directory and the mail server take their time.
class PartPrinter {
 public:
  PartPrinter(const CheckOptions& options, const check::Report& report)
      : silent_(options.question.format != Format::Text), report_(report), style_(outputStyle()) {}

  void begin(Part part) {
    if (silent_) return;
    std::printf("%s%s\n", part_ == nullptr ? "" : "\n",
                style_.heading(nameOf(part).heading).c_str());
    std::fflush(stdout);
    part_ = nameOf(part).name;
  }
  void end() {
    const std::vector<check::Finding>& findings = report_.findings();
    for (; shown_ < findings.size(); ++shown_) {
      if (!silent_) std::fputs(lineOf(findings[shown_], style_).c_str(), stdout);
    }
    std::fflush(stdout);
  }
  void finish() const {
    if (silent_) return;
    const auto& findings = report_.findings();
    std::printf("\n%s, %s.\n", counted(countOf(findings, Level::Fault), "fault").c_str(),
                counted(countOf(findings, Level::Note), "note").c_str());
  }

 private:
  bool silent_;
  const check::Report& report_;
  TextStyle style_;
  const char* part_ = nullptr;
  std::size_t shown_ = 0;
};

Answer answerOf(const std::vector<check::Finding>& findings) {
  Answer answer;
  answer.command = "check";
  answer.members["faults"] = countOf(findings, Level::Fault);
  answer.members["notes"] = countOf(findings, Level::Note);
  answer.rowsKey = "findings";
  answer.table.columns = {{"part", ""}, {"level", ""}, {"subject", ""}, {"text", ""}, {"cure", ""}};
  for (const check::Finding& finding : findings) {
    answer.table.rows.push_back({nameOf(finding.part).name, nameOf(finding.level).name,
                                 finding.subject, finding.text,
                                 finding.cure.empty() ? Value() : Value(finding.cure)});
  }
  return answer;
}

}  // namespace

int checkCommand(const CheckOptions& options) {
  for (const std::string& name : options.only) {
    const bool known = std::any_of(std::begin(kParts), std::end(kParts),
                                   [&](const PartName& one) { return name == one.name; });
    if (known) continue;
    return refuse("--only: there is no part \"" + name +
                  "\"; the parts are settings, lists, templates, directory, mail, folder");
  }
  const auto isWanted = [&](Part part) {
    return options.only.empty() ||
           std::count(options.only.begin(), options.only.end(), nameOf(part).name) != 0;
  };
  SiteOptions siteOptions = options.question.site;
  siteOptions.directoryMayBeUnusable = true;
  std::string error;
  const std::unique_ptr<platform::SystemHost> system = openSite(siteOptions, error);
  if (!system) return refuse(error);
  const check::Site site = check::loadSite(system->host());

  check::Report report;
  PartPrinter printer(options, report);
  const auto run = [&](Part part, const std::function<void()>& checkPart) {
    if (!isWanted(part)) return;
    printer.begin(part);
    checkPart();
    printer.end();
  };
  run(Part::Settings, [&] { check::checkSettings(site, report); });
  run(Part::Templates, [&] { check::checkTemplates(site, report); });
  run(Part::Folder, [&] { check::checkFolder(site, report); });
  std::vector<std::string> due;
  if (isWanted(Part::Lists) || isWanted(Part::Directory)) {
    site.host.directory.beginPass();
    run(Part::Lists, [&] { check::checkLists(site, report, due); });
    if (!isWanted(Part::Lists)) {
      check::Report unwanted;
      check::checkLists(site, unwanted, due);
    }
    run(Part::Directory, [&] { check::checkDirectory(site, due, report); });
    site.host.directory.endPass();
  }
  run(Part::Mail, [&] { check::checkMailServer(site, report); });
  printer.finish();
  if (options.question.format != Format::Text) {
    printAnswer(answerOf(report.findings()), options.question.format);
  }
  return countOf(report.findings(), Level::Fault) == 0 ? kExitDone : kExitSomethingFailed;
}

}  // namespace console
