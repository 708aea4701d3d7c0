// The warning's body: which text counts, whether it can be read, and what stands in it for a token.
#include <algorithm>
#include <string_view>

#include "base/ascii.h"
#include "base/nearest_name.h"
#include "check/checks.h"
#include "config/editions.h"
#include "config/pass_files.h"
#include "notify/mail_templates.h"
#include "platform/system/files.h"
#include "platform/text/text_lines.h"

namespace check {
namespace {

constexpr std::string_view kTokenStart = "<%";
constexpr const char* kDaysToken = "<%daysUntilExpiration%>";
constexpr const char* kDateToken = "<%expirationDate%>";

using notify::MailKind;

std::size_t lineAt(std::string_view text, std::size_t position) {
  return 1 + static_cast<std::size_t>(std::count(
                 text.begin(), text.begin() + static_cast<std::ptrdiff_t>(position), '\n'));
}

std::string tokenList() {
  std::string text;
  for (const std::string& token : notify::knownTokens()) text += (text.empty() ? "" : " ") + token;
  return text;
}

void reportToken(const std::string& source, const notify::UnknownToken& token, Report& report) {
  const std::string where = source + ":" + std::to_string(token.line);
  const std::string problem = token.problem();
  if (token.text.empty()) return report.fault(where, problem, "end the token with %>");
  const std::string nearest = base::nearestName(token.text, notify::knownTokens());
  report.fault(where, problem + (nearest.empty() ? "" : "; " + nearest + " may be meant"),
               nearest.empty() ? "the tokens are " + tokenList() : "write " + nearest);
}

bool saysWhen(const std::string& text) {
  return text.find(kDaysToken) != std::string::npos || text.find(kDateToken) != std::string::npos;
}

void checkText(const std::string& source, const std::string& text, bool isHtml, MailKind kind,
               Report& report) {
  if (base::trimmed(text).empty()) {
    report.fault(source, "is empty: the mail would have a subject only", "write the mail's text");
    return;
  }
  const bool markup = base::containsNoCase(text, "<html") || base::containsNoCase(text, "<body") ||
                      base::containsNoCase(text, "<p");
  if (isHtml && text.find('<') == std::string::npos) {
    report.note(source, "holds no markup: its lines run together in the mail",
                std::string("name it ") + config::kTextTemplateFile);
  } else if (!isHtml && markup) {
    report.note(source, "holds markup, and is mailed as plain text",
                std::string("name the file ") + config::kHtmlTemplateFile);
  }
  const std::size_t escaped = text.find("&lt;%");
  if (escaped != std::string::npos) {
    report.fault(source + ":" + std::to_string(lineAt(text, escaped)),
                 "\"&lt;%\" is no token: an editor has escaped the \"<\"",
                 "write <% and %> in the HTML source itself");
  }
  if (kind == MailKind::Warning && !saysWhen(text)) {
    report.note(source, "does not say how many days are left",
                std::string("put ") + kDaysToken + " into it");
  }
}

// A file that looks as if it was to be a template.
void checkFileNames(Report& report) {
  const std::vector<std::string> known = {config::kHtmlTemplateFile, config::kTextTemplateFile};
  for (const std::string& name : platform::namesInFolder(".")) {
    const bool begins = base::beginsWithNoCase(name, "NorvynExpir") ||
                        base::beginsWithNoCase(name, config::kManagerTemplates);
    const std::string nearest = base::nearestName(name, known);
    if (notify::isTemplateName(name) || (!begins && nearest.empty())) continue;
    report.note(name, "is not read: the templates are " + known[0] + " and " + known[1],
                "rename it" + (nearest.empty() ? "" : " to " + nearest) +
                    ", or move it away; docs/lists.md has the names for policies and languages");
  }
}

const char* nounOf(MailKind kind) {
  return kind == MailKind::Warning   ? "is the warning's body"
         : kind == MailKind::Expired ? "is the body for passwords that have expired"
                                     : "is the body of the mail to managers";
}

void checkTemplate(const Site& site, const notify::MessageTemplate& found, Report& report) {
  const bool html = found.html.has_value();
  std::string words = nounOf(found.kind);
  if (found.slot != notify::kEveryPolicy) words += " for " + config::policySlotName(found.slot);
  if (!found.tag.empty()) words += " in the language " + found.tag;
  words += html ? ", as HTML" : ", as plain text";
  if (html && found.text) {
    words += found.textFile.empty() ? " with a text made from it" : " with a text beside it";
  }
  report.ok(found.files(), words);
  if (html) checkText(found.htmlFile, found.html->source(), true, found.kind, report);
  if (found.text && !found.textFile.empty()) {
    checkText(found.textFile, found.text->source(), false, found.kind, report);
  }
  if (found.slot != notify::kEveryPolicy && service::effectiveMaxAge(site.slots, found.slot) == 0) {
    report.note(found.files(), "is not used: its policy has no maximum age or no name");
  }
  if (html && !found.text && !found.textFile.empty()) {
    report.note(found.textFile, "is not used: the HTML template counts",
                "emailTextAlternative mails both");
  }
  if (found.subject && !site.settings.subjectTokens &&
      found.subject->source().find(kTokenStart) != std::string::npos) {
    report.note(found.files(), "has a subject with tokens, which are mailed as they stand",
                "set subjectTokens");
  }
}

void checkSubject(const Site& site, Report& report) {
  const std::string& subject = site.settings.emailSubject;
  const std::string source = valueName(site, site.settingsKey, "emailSubject");
  if (subject.find(kTokenStart) == std::string::npos) return;
  if (!site.settings.subjectTokens) {
    return report.note(source, "holds tokens, which are mailed as they stand", "set subjectTokens");
  }
  for (const notify::UnknownToken& token : notify::findUnknownTokens(subject)) {
    reportToken(source, token, report);
  }
}

}  // namespace

void checkTemplates(const Site& site, Report& report) {
  report.begin(Part::Templates);
  const notify::MailTemplates templates(site.settings);
  for (const std::string& problem : templates.problems()) {
    const std::size_t name = problem.find(' ');
    report.fault(problem.substr(0, name), problem.substr(name + 1),
                 "save it as UTF-8, readable for the program's user");
  }
  checkFileNames(report);
  checkSubject(site, report);
  const std::string& message = site.settings.emailCustomMsg;
  const std::string messageName = valueName(site, site.settingsKey, "emailCustomMsg");
  bool everybody = false;  // there is a template for the warnings of every policy and language
  for (const notify::MessageTemplate* found : templates.all()) {
    everybody |= found->kind == MailKind::Warning && found->slot == notify::kEveryPolicy &&
                 found->tag.empty();
    checkTemplate(site, *found, report);
  }
  for (const auto& [file, token] : templates.unknownTokens()) reportToken(file, token, report);
  if (everybody) {
    if (!message.empty()) report.note(messageName, "is not used: the template counts");
  } else if (!message.empty()) {
    report.ok(messageName, "is the warning's body, as plain text");
    const std::string text = platform::ansiToUtf8(message);
    checkText(messageName, text, false, MailKind::Warning, report);
    for (const notify::UnknownToken& token : notify::findUnknownTokens(text)) {
      reportToken(messageName, token, report);
    }
  } else if (!templates.anyLost(MailKind::Warning)) {
    report.fault(config::kHtmlTemplateFile,
                 "is not there, nor is a text template or emailCustomMsg: the warning has a "
                 "subject only",
                 "write one of them; docs/lists.md says how");
  }
}

}  // namespace check
