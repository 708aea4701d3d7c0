#include "service/processed_users.h"

#include <algorithm>

#include "config/format_text.h"
#include "platform/code_page.h"
#include "platform/files.h"

namespace service {

bool ProcessedUsers::append(const std::u16string& name) {
  const auto [position, added] = names_.insert(name);
  if (added) order_.push_back(&*position);
  return added;
}

bool ProcessedUsers::removeList(const std::u16string& name, const config::DebugLog& log) {
  const auto position = names_.find(name);
  const bool found = position != names_.end();
  if (log.enabled()) {
    platform::appendToFile("logfiles\\userList.txt",
                           config::formatText(" -in removeList() checking for  %s, found=%i\n",
                                              platform::utf16ToAnsi(name).c_str(), found));
  }
  if (found) {
    order_.erase(std::find(order_.begin(), order_.end(), &*position));
    names_.erase(position);
  }
  return found;
}

void ProcessedUsers::dumpList() const {
  const std::string rule = std::string(44, '-') + "\n";
  std::string text =
      rule + config::formatText("globalListCount=%i\n", static_cast<int>(count())) + rule;
  for (const std::u16string* name : order_) text += platform::utf16ToAnsi(*name) + "\n";
  platform::appendToFile("logfiles//ExpirationList.txt", text);
}

void ProcessedUsers::clear() {
  order_.clear();
  names_.clear();
}

}  // namespace service
