// Directory and settings text inside the HTML report.
#pragma once

#include <string>
#include <string_view>

namespace notify {

// ANSI text as HTML text that can't become markup: &, <, > and quotes as entities, everything
// outside ASCII as a numeric character reference, so that the report reads the same in any charset.
std::string escapeHtml(std::string_view ansi);

}  // namespace notify
