// Names compared as a directory compares them: without regard to letter case.
// Pure functions; may be used by several threads.
#pragma once

#include <string>
#include <string_view>

namespace base {

// The UTF-8 text with its letters in lower case: those of ASCII, Latin-1, Latin Extended-A, Greek
// and Cyrillic, one character for one; every other character stays, and so do bytes that are not
// UTF-8. Independent of the process's locale.
std::string foldCase(std::string_view text);

}  // namespace base
