#include "service/processed_users.h"

#include <functional>
#include <utility>

#include "base/format_text.h"
#include "platform/system/files.h"
#include "platform/text/code_page.h"

namespace service {
namespace {

constexpr std::size_t kSmallestTable = 1024;

std::uint32_t hashOf(std::u16string_view name) {
  return static_cast<std::uint32_t>(std::hash<std::u16string_view>()(name));
}

}  // namespace

std::u16string_view ProcessedUsers::nameAt(std::size_t index) const {
  const std::size_t begin = index == 0 ? 0 : ends_[index - 1];
  return std::u16string_view(text_).substr(begin, ends_[index] - begin);
}

std::size_t ProcessedUsers::slotOf(std::u16string_view name, std::uint32_t hash) const {
  const std::size_t mask = table_.size() - 1;
  std::size_t at = hash & mask;
  while (table_[at].number != 0 &&
         (table_[at].hash != hash || nameAt(table_[at].number - 1) != name)) {
    at = (at + 1) & mask;
  }
  return at;
}

bool ProcessedUsers::contains(std::u16string_view name) const {
  return !table_.empty() && table_[slotOf(name, hashOf(name))].number != 0;
}

bool ProcessedUsers::append(std::u16string_view name) {
  if ((count() + 1) * 2 > table_.size()) {
    rebuildTable(table_.empty() ? kSmallestTable : table_.size() * 2);
  }
  const std::uint32_t hash = hashOf(name);
  Slot& slot = table_[slotOf(name, hash)];
  if (slot.number != 0) return false;
  text_ += name;
  ends_.push_back(text_.size());
  slot = {hash, static_cast<std::uint32_t>(count())};
  return true;
}

// All names differ, so each belongs into the first free slot from its hash on.
void ProcessedUsers::rebuildTable(std::size_t size) {
  const std::vector<Slot> before = std::exchange(table_, std::vector<Slot>(size));
  const std::size_t mask = size - 1;
  for (const Slot& slot : before) {
    if (slot.number == 0) continue;
    std::size_t at = slot.hash & mask;
    while (table_[at].number != 0) at = (at + 1) & mask;
    table_[at] = slot;
  }
}

bool ProcessedUsers::removeList(std::u16string_view name, const config::DebugLog& log) {
  const bool found = contains(name);
  if (log.enabled()) {
    platform::appendToFile("logfiles\\userList.txt",
                           base::formatText(" -in removeList() checking for  %s, found=%i\n",
                                            platform::utf16ToAnsi(name).c_str(), found));
  }
  if (!found) return false;
  const ProcessedUsers before = std::exchange(*this, ProcessedUsers());
  for (std::size_t i = 0; i < before.count(); ++i) {
    if (before.nameAt(i) != name) append(before.nameAt(i));
  }
  return true;
}

void ProcessedUsers::dumpList() const {
  const std::string rule = std::string(44, '-') + "\n";
  std::string text =
      rule + base::formatText("globalListCount=%i\n", static_cast<int>(count())) + rule;
  for (std::size_t i = 0; i < count(); ++i) text += platform::utf16ToAnsi(nameAt(i)) + "\n";
  platform::appendToFile("logfiles//ExpirationList.txt", text);
}

void ProcessedUsers::clear() {
  *this = ProcessedUsers();
}

}  // namespace service
