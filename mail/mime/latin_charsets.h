// ISO 8859-10, -14 and -16, which not every system converts. Pure.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kelvado {

bool isLatinCodePage(std::uint32_t codePage);  // whether it is one of the three

// The code page must be one of the three.
std::string latinToUtf8(std::uint32_t codePage, std::string_view bytes);
// What the charset does not have becomes '?', and `lossy` is set.
std::string utf8ToLatin(std::uint32_t codePage, std::string_view utf8, bool& lossy);

}  // namespace kelvado
