// The users that a pass has dealt with, in order: a user belongs to the first policy that names
// him. Names are compared exactly. One object for each pass.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/hash_index.h"
#include "config/debug_log.h"

namespace service {

// All names stand in one text, and an index of their hashes finds them: a user costs no allocation.
class ProcessedUsers {
 public:
  bool contains(std::u16string_view name) const;
  // False, and nothing changed, when the name is there already.
  bool append(std::u16string_view name);
  // Removes the name and says in kUserListFile, with debug on, whether it was there; the
  // same is returned. Takes time in proportion to the list.
  bool removeList(std::u16string_view name, const config::DebugLog& log);
  // Appends count and names to kExpirationListFile.
  void dumpList() const;
  std::size_t count() const { return ends_.size(); }

 private:
  std::u16string_view nameAt(std::size_t index) const;
  bool isIn(std::u16string_view name, std::uint32_t hash) const;

  std::u16string text_;            // one name behind the other
  std::vector<std::size_t> ends_;  // of the names in it
  base::HashIndex index_;
};

}  // namespace service
