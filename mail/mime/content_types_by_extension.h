// The content type of a file by the extension of its name. A pure look-up.
#pragma once

#include <string_view>

namespace kelvado {

// By the text after the last '.', in any letter case; "application/octet-stream" when that is
// unknown or there is none.
std::string_view contentTypeForFile(std::string_view fileName);

// The name without its folders, as attachments are called: after the last '/' or '\'.
std::string_view baseName(std::string_view path);

}  // namespace kelvado
