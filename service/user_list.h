// The include and exclude files of the policies: one user name a line.
// Used by the expiration run only.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <unordered_set>

namespace service {

// A read takes at most 127 characters: a longer line counts as several names.
inline constexpr std::size_t kListReadSize = 128;

struct PolicyFiles {
  std::string include;
  std::string exclude;
};

PolicyFiles policyFiles(int slot);

// Cuts the last character, whatever it is: a last line without a line end loses a real one.
void cutLineEnd(std::string& line);

// Takes the mark away that some editors put before the first line of a text in UTF-8.
void cutByteOrderMark(std::string& firstLine);

// What a name is compared by, whatever its letter case and the blanks behind it.
std::string nameKey(const std::string& ansi);

// The keys of the names in an exclude file; missing, it excludes nobody. Nothing when there is one
// that cannot be read, or is in UTF-16.
std::optional<std::unordered_set<std::string>> readExcludeFile(const std::string& file);

}  // namespace service
