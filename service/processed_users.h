// The users that a pass has dealt with, in order: a user belongs to the first policy that names
// him. Names are compared exactly. Used by the expiration run; emptied for every pass.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "config/debug_log.h"

namespace service {

// All names stand in one text, and a table of their hashes finds them: with a million users the
// time for each is that of one look into the table, not of an allocation and three.
class ProcessedUsers {
 public:
  bool contains(std::u16string_view name) const;
  // False, and nothing changed, when the name is there already.
  bool append(std::u16string_view name);
  // Removes the name and says in "logfiles\userList.txt", with debug on, whether it was there; the
  // same is returned. Takes time in proportion to the list.
  bool removeList(std::u16string_view name, const config::DebugLog& log);
  // Appends count and names to "logfiles//ExpirationList.txt".
  void dumpList() const;
  std::size_t count() const { return ends_.size(); }
  void clear();

 private:
  struct Slot {
    std::uint32_t hash = 0;
    std::uint32_t number = 0;  // of the name, from 1; 0: free
  };

  std::u16string_view nameAt(std::size_t index) const;
  // The slot that holds the name, or the free one where it belongs. The table has a free slot.
  std::size_t slotOf(std::u16string_view name, std::uint32_t hash) const;
  void rebuildTable(std::size_t size);

  std::u16string text_;            // one name behind the other
  std::vector<std::size_t> ends_;  // of the names in it
  std::vector<Slot> table_;        // a power of two of them, at most half in use
};

}  // namespace service
