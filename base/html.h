// Text inside HTML and XML. Pure functions.
#pragma once

#include <string>
#include <string_view>

namespace base {

// The entity of one of & < > " ' ("&amp;"); empty for any other character.
std::string_view htmlEntity(char c);

// The text with each of the characters in `special`, which are some of the five above, as its
// entity.
std::string escapeHtml(std::string_view text, std::string_view special = "&<>\"");

}  // namespace base
