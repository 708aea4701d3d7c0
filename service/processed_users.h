// The users that a pass has dealt with, in order: a user belongs to the first policy that names
// him. Names are compared exactly. Used by the expiration run; emptied for every pass.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_set>
#include <vector>

#include "config/debug_log.h"

namespace service {

class ProcessedUsers {
 public:
  bool contains(const std::u16string& name) const { return names_.count(name) != 0; }
  // False, and nothing changed, when the name is there already.
  bool append(const std::u16string& name);
  // Removes the name and says in "logfiles\userList.txt", with debug on, whether it was there; the
  // same is returned.
  bool removeList(const std::u16string& name, const config::DebugLog& log);
  // Appends count and names to "logfiles//ExpirationList.txt".
  void dumpList() const;
  std::size_t count() const { return order_.size(); }
  void clear();

 private:
  std::unordered_set<std::u16string> names_;  // its elements stay where they are
  std::vector<const std::u16string*> order_;
};

}  // namespace service
