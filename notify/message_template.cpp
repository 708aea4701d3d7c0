#include "notify/message_template.h"

#include <cerrno>
#include <cstddef>
#include <iterator>
#include <optional>
#include <string_view>
#include <system_error>
#include <type_traits>

#include "base/html.h"
#include "base/text.h"
#include "base/unicode.h"
#include "config/pass_files.h"
#include "platform/system/files.h"
#include "platform/text/code_page.h"
#include "platform/text/text_lines.h"

namespace notify {
namespace {

constexpr std::size_t kMaxTemplateBytes = std::size_t{16} * 1024 * 1024;

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
struct Utf16Mark {
  std::string_view mark;
  std::uint32_t codePage;
};
constexpr Utf16Mark kUtf16Marks[] = {{"\xFF\xFE", 1200}, {"\xFE\xFF", 1201}};

// The bytes as UTF-8 without a mark; nothing when they are not the text that they should be.
std::optional<std::string> decoded(std::string_view bytes) {
  std::string text;
  bool lossy = false;
  for (const Utf16Mark& utf16 : kUtf16Marks) {
    if (!bytes.starts_with(utf16.mark)) continue;
    platform::codePageToUtf8(utf16.codePage, bytes.substr(utf16.mark.size()), text, &lossy);
    if (lossy || text.find('\0') != std::string::npos) return std::nullopt;
    return text;
  }
  const bool marked = bytes.starts_with(kUtf8Mark);
  if (marked) bytes.remove_prefix(kUtf8Mark.size());
  const bool isUtf8 = base::isValidUtf8(bytes);
  if ((marked && !isUtf8) || bytes.find('\0') != std::string_view::npos) return std::nullopt;
  return isUtf8 ? std::string(bytes) : platform::ansiToUtf8(bytes);
}

constexpr std::string_view kTokens[] = {"<%username%>", "<%firstName%>", "<%lastName%>",
                                        "<%daysUntilExpiration%>", "<%backslash%>"};

struct Template {
  std::optional<std::string> text;  // UTF-8, lines end in LF
  std::string problem;              // why there is no text; empty when there is no file
};

Template readTemplate(const char* name) {
  std::string bytes;
  if (!platform::readWholeFile(name, bytes, kMaxTemplateBytes)) {
    if (errno == ENOENT) return {};
    return {{},
            std::string(name) +
                " cannot be read and is passed over: " + std::generic_category().message(errno)};
  }
  Template found{decoded(bytes), ""};
  if (found.text) {
    base::replaceAll(*found.text, "\r\n", "\n");
  } else {
    found.problem = std::string(name) + " is no text and is passed over: save it as UTF-8";
  }
  return found;
}

}  // namespace

std::string messageLines(const std::string& message) {
  std::string lines;
  std::size_t from = 0;
  while (from < message.size()) {
    std::size_t end = platform::findInAnsi(message, '\\', from);
    if (end == std::string::npos) end = message.size();
    if (end > from) lines += message.substr(from, end - from) + "\n";
    from = end + 1;
  }
  return lines;
}

MessageBody loadMessageBody(const std::string& customMessage, config::DebugLog& log) {
  const Template html = readTemplate(config::kHtmlTemplateFile);
  if (html.text) {
    log.print("**HTML email body file found.\n");
    return {*html.text, true, false, config::kHtmlTemplateFile};
  }
  const Template plain = readTemplate(config::kTextTemplateFile);
  if (plain.text) {
    log.print("**Plain text email body file found.\n");
    return {*plain.text, false, false, config::kTextTemplateFile};
  }
  log.print("**No custom email text files found.  Using registry value for custom email body.\n");
  const bool anyProblem = !html.problem.empty() || !plain.problem.empty();
  return {platform::ansiToUtf8(customMessage), false, customMessage.empty() && anyProblem};
}

std::vector<std::string> findTemplateProblems() {
  std::vector<std::string> problems;
  for (const char* name : {config::kHtmlTemplateFile, config::kTextTemplateFile}) {
    const std::string problem = readTemplate(name).problem;
    if (!problem.empty()) problems.push_back(problem);
  }
  return problems;
}

std::vector<std::string> knownTokens() {
  return {std::begin(kTokens), std::end(kTokens)};
}

void replaceTokens(MessageBody& body, const UserRecord& user) {
  // In the order of kTokens, ANSI.
  const std::string values[] = {user.username, user.data.firstName, user.data.lastName,
                                std::to_string(user.daysLeft()), "\\"};
  static_assert(std::size(kTokens) == std::extent_v<decltype(values)>);
  constexpr std::string_view kTokenStart = "<%";
  std::string text;
  std::string_view rest = body.text;
  for (std::size_t at = 0; (at = rest.find(kTokenStart)) != std::string_view::npos;) {
    text += rest.substr(0, at);
    rest.remove_prefix(at);
    std::size_t length = 1;  // of what is taken off: no token begins here
    for (std::size_t i = 0; i < std::size(kTokens); ++i) {
      if (!rest.starts_with(kTokens[i])) continue;
      const std::string utf8 = platform::ansiToUtf8(values[i]);
      text += body.isHtml ? base::escapeHtml(utf8) : utf8;
      length = kTokens[i].size();
      break;
    }
    if (length == 1) text += rest.front();
    rest.remove_prefix(length);
  }
  body.text = text.append(rest);
}

}  // namespace notify
