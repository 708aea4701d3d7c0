// The body of a warning e-mail: which template applies, and its tokens.
// Used by the warning e-mail only.
#pragma once

#include <string>
#include <vector>

#include "config/debug_log.h"
#include "notify/user_record.h"

namespace notify {

struct MessageBody {
  std::string text;  // UTF-8
  bool isHtml = false;
  // There is a template that cannot be used, and nothing else to say: the text is empty.
  bool templateLost = false;
  const char* file = nullptr;  // the template that it is from; null: the custom message
};

// A stored message has a backslash for every line break; several in a row count as one.
std::string messageLines(const std::string& message);

// The HTML template, else the plain-text one, else the custom message (ANSI). Says in the debug log
// which. A template is UTF-16 when it begins with that encoding's mark, else UTF-8 when it is valid
// UTF-8, else ANSI. One that cannot be read or decoded is passed over.
MessageBody loadMessageBody(const std::string& customMessage, config::DebugLog& log);

// The templates that are there and cannot be used: one line each, for an administrator.
std::vector<std::string> findTemplateProblems();

// "<%username%>" and the others.
std::vector<std::string> knownTokens();

// Replaces the tokens, <%username%> and the others of the table in message_template.cpp, in one
// scan: an inserted value is not looked at again. Letter case counts. In HTML a value is inserted
// as text, never as markup.
void replaceTokens(MessageBody& body, const UserRecord& user);

}  // namespace notify
