#include "notify/message_template.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <iterator>
#include <system_error>
#include <utility>

#include "base/text.h"
#include "base/unicode.h"
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

// In the order of Token.
constexpr std::string_view kTokens[] = {
    "<%username%>",  "<%firstName%>",      "<%lastName%>",       "<%daysUntilExpiration%>",
    "<%backslash%>", "<%expirationDate%>", "<%expirationTime%>", "<%displayName%>",
    "<%domain%>",    "<%policyName%>",     "<%email%>",          "<%managerName%>",
    "<%users%>"};
static_assert(std::size(kTokens) == static_cast<std::size_t>(Token::Users) + 1);
constexpr std::string_view kUsersEnd = "<%/users%>";

constexpr std::string_view kTokenStart = "<%";
constexpr std::string_view kTokenEnd = "%>";

// Which token `text` begins with.
std::optional<Token> tokenAt(std::string_view text) {
  for (std::size_t i = 0; i < std::size(kTokens); ++i) {
    if (text.starts_with(kTokens[i])) return static_cast<Token>(i);
  }
  return std::nullopt;
}

}  // namespace

std::vector<std::string> knownTokens() {
  return {std::begin(kTokens), std::end(kTokens)};
}

PreparedText::PreparedText(std::string text) : source_(std::move(text)) {
  const std::string_view all = source_;
  for (std::size_t at = 0; (at = all.find(kTokenStart, at)) != std::string_view::npos;) {
    const std::optional<Token> token = tokenAt(all.substr(at));
    Place place{at, token ? kTokens[static_cast<std::size_t>(*token)].size() : 1, {}, nullptr};
    if (token == Token::Users) {
      const std::size_t from = at + place.length;
      const std::size_t end = std::min(all.find(kUsersEnd, from), all.size());
      place.each = std::make_shared<PreparedText>(std::string(all.substr(from, end - from)));
      place.length = std::min(end + kUsersEnd.size(), all.size()) - at;
    }
    if (token) {
      place.token = *token;
      places_.push_back(place);
    }
    at += place.length;
  }
}

std::string PreparedText::filled(const TokenValues& values, TextFormat format) const {
  std::string text;
  std::size_t done = 0;
  for (const Place& place : places_) {
    text.append(source_, done, place.offset - done);
    if (place.each != nullptr) {
      values.appendUsers(*place.each, format, text);
    } else {
      values.append(place.token, format, text);
    }
    done = place.offset + place.length;
  }
  return text.append(source_, done);
}

bool PreparedText::uses(Token token) const {
  return std::any_of(places_.begin(), places_.end(), [token](const Place& place) {
    return place.token == token || (place.each != nullptr && place.each->uses(token));
  });
}

std::vector<UnknownToken> findUnknownTokens(std::string_view text) {
  std::vector<UnknownToken> found;
  std::size_t line = 1;
  while (!text.empty()) {
    const std::string_view lineText = base::takeLine(text);
    for (std::size_t at = 0; (at = lineText.find(kTokenStart, at)) != std::string_view::npos;
         ++at) {
      const std::string_view rest = lineText.substr(at);
      if (tokenAt(rest) || rest.starts_with(kUsersEnd)) continue;
      const std::size_t end = lineText.find(kTokenEnd, at);
      const bool ends = end != std::string_view::npos;
      found.push_back(
          {line, ends ? std::string(lineText.substr(at, end + kTokenEnd.size() - at)) : ""});
    }
    ++line;
  }
  return found;
}

std::string UnknownToken::problem() const {
  return text.empty() ? "a \"<%\" without \"%>\" behind it: it is mailed as it stands"
                      : platform::utf8ToAnsi(text) + " is no token: it is mailed as it stands";
}

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

TemplateFile readTemplate(const std::string& name) {
  std::string bytes;
  if (!platform::readWholeFile(name, bytes, kMaxTemplateBytes)) {
    if (errno == ENOENT) return {};
    return {{},
            name + " cannot be read and is passed over: " + std::generic_category().message(errno)};
  }
  TemplateFile found{decoded(bytes), ""};
  if (found.text) {
    base::replaceAll(*found.text, "\r\n", "\n");
  } else {
    found.problem = name + " is no text and is passed over: save it as UTF-8";
  }
  return found;
}

}  // namespace notify
