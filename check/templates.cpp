// The warning's body: which text counts, whether it can be read, and what stands in it for a token.
#include <algorithm>
#include <filesystem>
#include <string_view>

#include "base/ascii.h"
#include "base/nearest_name.h"
#include "check/checks.h"
#include "config/pass_files.h"
#include "notify/message_template.h"
#include "platform/system/files.h"
#include "platform/system/path_name.h"
#include "platform/text/text_lines.h"

namespace check {
namespace {

constexpr std::string_view kTokenStart = "<%";
constexpr std::string_view kTokenEnd = "%>";
constexpr const char* kDaysToken = "<%daysUntilExpiration%>";

std::size_t lineAt(std::string_view text, std::size_t position) {
  return 1 + static_cast<std::size_t>(std::count(
                 text.begin(), text.begin() + static_cast<std::ptrdiff_t>(position), '\n'));
}

std::string tokenList() {
  std::string text;
  for (const std::string& token : notify::knownTokens()) text += (text.empty() ? "" : " ") + token;
  return text;
}

// Everything between "<%" and "%>" that is no token.
void checkTokens(const std::string& source, std::string_view text, Report& report) {
  const std::vector<std::string> known = notify::knownTokens();
  for (std::size_t at = 0; (at = text.find(kTokenStart, at)) != std::string_view::npos; ++at) {
    const std::string where = source + ":" + std::to_string(lineAt(text, at));
    const std::size_t end = text.find(kTokenEnd, at);
    const std::size_t line = text.find('\n', at);
    if (end == std::string_view::npos || end > line) {
      report.fault(where, "a \"<%\" without \"%>\" behind it: it is mailed as it stands",
                   "end the token with %>");
      continue;
    }
    const std::string token(text.substr(at, end + kTokenEnd.size() - at));
    if (std::count(known.begin(), known.end(), token) != 0) continue;
    const std::string nearest = base::nearestName(token, known);
    report.fault(where,
                 platform::utf8ToAnsi(token) + " is no token: it is mailed as it stands" +
                     (nearest.empty() ? "" : "; " + nearest + " may be meant"),
                 nearest.empty() ? "the tokens are " + tokenList() : "write " + nearest);
  }
  const std::size_t escaped = text.find("&lt;%");
  if (escaped == std::string_view::npos) return;
  report.fault(source + ":" + std::to_string(lineAt(text, escaped)),
               "\"&lt;%\" is no token: an editor has escaped the \"<\"",
               "write <% and %> in the HTML source itself");
}

void checkText(const std::string& source, const notify::MessageBody& body, Report& report) {
  if (base::trimmed(body.text).empty()) {
    report.fault(source, "is empty: the mail would have a subject only", "write the mail's text");
    return;
  }
  const bool markup = base::containsNoCase(body.text, "<html") ||
                      base::containsNoCase(body.text, "<body") ||
                      base::containsNoCase(body.text, "<p");
  if (body.isHtml && body.text.find('<') == std::string::npos) {
    report.note(source, "holds no markup: its lines run together in the mail",
                std::string("name it ") + config::kTextTemplateFile);
  } else if (!body.isHtml && markup) {
    report.note(source, "holds markup, and is mailed as plain text",
                std::string("name the file ") + config::kHtmlTemplateFile);
  }
  checkTokens(source, body.text, report);
  if (body.text.find(kDaysToken) == std::string::npos) {
    report.note(source, "does not say how many days are left",
                std::string("put ") + kDaysToken + " into it");
  }
}

// A file that looks as if it was to be a template.
void checkFileNames(Report& report) {
  const std::vector<std::string> known = {config::kHtmlTemplateFile, config::kTextTemplateFile};
  std::error_code status;
  for (const auto& entry : std::filesystem::directory_iterator(".", status)) {
    const std::string name = platform::nameOf(entry.path().filename());
    const bool isKnown = std::any_of(known.begin(), known.end(), [&](const auto& other) {
      return base::equalsNoCase(other, name);
    });
    const bool begins = base::beginsWithNoCase(name, "NorvynExpiration");
    const std::string nearest = base::nearestName(name, known);
    if (isKnown || (!begins && nearest.empty())) continue;
    report.note(name, "is not read: the templates are " + known[0] + " and " + known[1],
                "rename it" + (nearest.empty() ? "" : " to " + nearest) + ", or move it away");
  }
}

}  // namespace

void checkTemplates(const Site& site, Report& report) {
  report.begin(Part::Templates);
  for (const std::string& problem : notify::findTemplateProblems()) {
    const std::size_t name = problem.find(' ');
    report.fault(problem.substr(0, name), problem.substr(name + 1),
                 "save it as UTF-8, readable for the program's user");
  }
  checkFileNames(report);
  config::DebugLog silent(false);
  const std::string& message = site.settings.emailCustomMsg;
  const notify::MessageBody body = notify::loadMessageBody(message, silent);
  const bool html = body.isHtml;
  const bool isFile = body.file != nullptr;
  const std::string source =
      isFile ? body.file : valueName(site, site.settingsKey, "emailCustomMsg");
  if (!isFile && message.empty()) {
    if (body.templateLost) return;  // said above
    report.fault(config::kHtmlTemplateFile,
                 "is not there, nor is a text template or emailCustomMsg: the warning has a "
                 "subject only",
                 "write one of them; docs/lists.md says how");
    return;
  }
  report.ok(source, "is the warning's body" + std::string(html ? ", as HTML" : ", as plain text"));
  if (html && platform::fileExists(config::kTextTemplateFile)) {
    report.note(config::kTextTemplateFile, "is not used: the HTML template counts");
  }
  if (isFile && !message.empty()) {
    report.note(valueName(site, site.settingsKey, "emailCustomMsg"),
                "is not used: the template counts");
  }
  checkText(source, body, report);
}

}  // namespace check
