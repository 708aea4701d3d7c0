#include "notify/html_text.h"

#include <cstddef>

#include "base/format_text.h"
#include "base/html.h"
#include "platform/text/code_page.h"

namespace notify {
namespace {

bool isPlain(char c) {
  return static_cast<unsigned char>(c) < 0x80 && base::htmlEntity(c).empty();
}

bool isPlain(std::string_view text) {
  for (char c : text) {
    if (!isPlain(c)) return false;
  }
  return true;
}

void appendCharacter(std::string& html, char32_t character) {
  if (character >= 0x80) {
    html += base::formatText("&#%u;", static_cast<unsigned>(character));
    return;
  }
  const char c = static_cast<char>(character);
  const std::string_view entity = base::htmlEntity(c);
  html += entity.empty() ? std::string_view(&c, 1) : entity;
}

}  // namespace

std::string escapeHtml(std::string_view ansi) {
  if (isPlain(ansi)) return std::string(ansi);
  const std::u16string wide = platform::ansiToUtf16(ansi);
  std::string html;
  for (std::size_t i = 0; i < wide.size(); ++i) {
    char32_t character = wide[i];
    const bool high = character >= 0xD800 && character < 0xDC00;
    if (high && i + 1 < wide.size() && wide[i + 1] >= 0xDC00 && wide[i + 1] < 0xE000) {
      character = 0x10000 + ((character - 0xD800) << 10) + (wide[++i] - 0xDC00);
    }
    appendCharacter(html, character);
  }
  return html;
}

}  // namespace notify
