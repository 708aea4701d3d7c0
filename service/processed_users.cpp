#include "service/processed_users.h"

#include <functional>
#include <utility>

#include "base/format_text.h"
#include "config/pass_files.h"
#include "platform/system/files.h"
#include "platform/text/code_page.h"

namespace service {
namespace {

std::uint32_t hashOf(std::u16string_view name) {
  return static_cast<std::uint32_t>(std::hash<std::u16string_view>()(name));
}

}  // namespace

std::u16string_view ProcessedUsers::nameAt(std::size_t index) const {
  const std::size_t begin = index == 0 ? 0 : ends_[index - 1];
  return std::u16string_view(text_).substr(begin, ends_[index] - begin);
}

bool ProcessedUsers::isIn(std::u16string_view name, std::uint32_t hash) const {
  const auto same = [&](std::uint32_t index) { return nameAt(index) == name; };
  return index_.first(hash, same) != base::HashIndex::kNone;
}

bool ProcessedUsers::contains(std::u16string_view name) const {
  return isIn(name, hashOf(name));
}

bool ProcessedUsers::append(std::u16string_view name) {
  const std::uint32_t hash = hashOf(name);
  if (isIn(name, hash)) return false;
  index_.put(static_cast<std::uint32_t>(count()), hash);
  text_ += name;
  ends_.push_back(text_.size());
  return true;
}

bool ProcessedUsers::removeList(std::u16string_view name, const config::DebugLog& log) {
  const bool found = contains(name);
  if (log.enabled()) {
    platform::appendToFile(config::kUserListFile,
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
  platform::appendToFile(config::kExpirationListFile, text);
}

}  // namespace service
