#include "base/html.h"

#include <algorithm>

namespace base {

std::string_view htmlEntity(char c) {
  switch (c) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\'':
      return "&#39;";
    default:
      return {};
  }
}

std::string escapeHtml(std::string_view text, std::string_view special) {
  std::string html;
  html.reserve(text.size());
  while (!text.empty()) {
    const std::size_t plain = std::min(text.find_first_of(special), text.size());
    html.append(text.substr(0, plain));
    text.remove_prefix(plain);
    if (text.empty()) break;
    html.append(htmlEntity(text.front()));
    text.remove_prefix(1);
  }
  return html;
}

}  // namespace base
