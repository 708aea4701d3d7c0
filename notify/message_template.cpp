#include "notify/message_template.h"

#include <cstddef>
#include <utility>

#include "base/format_text.h"
#include "base/text.h"
#include "config/pass_files.h"
#include "platform/system/files.h"

namespace notify {
namespace {

constexpr std::size_t kTemplateReadSize = 256;  // bytes a read, with the terminator

bool readTemplate(const char* name, std::string& text) {
  platform::File file = platform::openFile(name, "r");
  if (!file) return false;
  std::string line;
  while (platform::readTextLine(file.get(), kTemplateReadSize, line)) text += line;
  return true;
}

}  // namespace

MessageBody loadMessageBody(const std::string& customMessage, config::DebugLog& log) {
  MessageBody body;
  if (readTemplate(config::kHtmlTemplateFile, body.text)) {
    log.print("**HTML email body file found.\n");
    body.isHtml = true;
  } else if (readTemplate(config::kTextTemplateFile, body.text)) {
    log.print("**Plain text email body file found.\n");
  } else {
    log.print("**No custom email text files found.  Using registry value for custom email body.\n");
    body.text = customMessage;
  }
  return body;
}

std::string replaceTokens(std::string text, const TokenValues& values) {
  const std::pair<std::string_view, std::string> tokens[] = {
      {"<%username%>", values.username},
      {"<%firstName%>", values.firstName},
      {"<%lastName%>", values.lastName},
      {"<%daysUntilExpiration%>", base::formatText("%i", values.daysUntilExpiration)},
      {"<%backslash%>", "\\"},
  };
  for (const auto& [token, value] : tokens) base::replaceAll(text, token, value);
  return text;
}

}  // namespace notify
