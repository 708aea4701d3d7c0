// The body of a warning e-mail: which template applies, and its tokens.
// Used by the warning e-mail only.
#pragma once

#include <string>
#include <string_view>

#include "config/debug_log.h"

namespace notify {

struct MessageBody {
  std::string text;  // ANSI code page
  bool isHtml = false;
};

// The HTML template, else the plain-text one, else the custom message. Says in the debug log which.
MessageBody loadMessageBody(const std::string& customMessage, config::DebugLog& log);

// What the tokens of a template stand for.
struct TokenValues {
  std::string username;
  std::string firstName;
  std::string lastName;
  int daysUntilExpiration = 0;
};

// Replaces every token, one kind after the other in the order <%username%>, <%firstName%>,
// <%lastName%>, <%daysUntilExpiration%>, <%backslash%>. Letter case counts. Within one kind an
// inserted value is not looked at again.
std::string replaceTokens(std::string text, const TokenValues& values);

}  // namespace notify
