// The include and exclude files of the policies: one user name a line.
// Used by the expiration run only.
#pragma once

#include <cstddef>
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

// What a name is compared by, whatever its letter case.
std::string nameKey(const std::string& ansi);

// The keys of the names in an exclude file; missing, it excludes nobody.
std::unordered_set<std::string> readExcludeFile(const std::string& file);

}  // namespace service
