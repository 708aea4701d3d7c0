#include "platform/directory/name_index.h"

#include <functional>

#include "base/case_fold.h"

namespace platform {
namespace {

std::uint32_t hashOf(std::string_view folded) {
  return static_cast<std::uint32_t>(std::hash<std::string_view>()(folded));
}

}  // namespace

void NameIndex::build(const Entries& entries) {
  index_.reset(entries.size());
  unique_ = true;
  // Backwards, so that those of one name are in the order of the entries.
  for (std::size_t i = entries.size(); i-- > 0;) {
    const std::string folded = base::foldCase(entries[i].*name_);
    unique_ = unique_ && first(entries, folded) == kNone;
    index_.put(static_cast<std::uint32_t>(i), hashOf(folded));
  }
}

std::uint32_t NameIndex::first(const Entries& entries, std::string_view folded) const {
  return index_.first(hashOf(folded), [&](std::uint32_t entry) {
    return base::foldCase(entries[entry].*name_) == folded;
  });
}

std::uint32_t NameIndex::next(const Entries& entries, std::string_view folded,
                              std::uint32_t previous) const {
  return index_.next(previous, [&](std::uint32_t entry) {
    return base::foldCase(entries[entry].*name_) == folded;
  });
}

}  // namespace platform
