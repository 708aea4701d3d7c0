// A hash table of chained entry numbers; see the header.
#include "platform/directory/name_index.h"

#include <bit>
#include <functional>

#include "base/case_fold.h"

namespace platform {

void NameIndex::build(const Entries& entries) {
  heads_.assign(std::bit_ceil(entries.size() * 2 + 1), kNone);
  links_.assign(entries.size(), Link());
  unique_ = true;
  // Backwards, so that each bucket is in the order of the entries.
  for (std::size_t i = entries.size(); i-- > 0;) {
    const std::string folded = base::foldCase(entries[i].*name_);
    const std::uint32_t hash = hashOf(folded);
    std::uint32_t& head = heads_[hash & (heads_.size() - 1)];
    unique_ = unique_ && match(entries, folded, hash, head) == kNone;
    links_[i] = {head, hash};
    head = static_cast<std::uint32_t>(i);
  }
}

std::uint32_t NameIndex::first(const Entries& entries, std::string_view folded) const {
  const std::uint32_t hash = hashOf(folded);
  return match(entries, folded, hash, heads_[hash & (heads_.size() - 1)]);
}

std::uint32_t NameIndex::next(const Entries& entries, std::string_view folded,
                              std::uint32_t previous) const {
  return match(entries, folded, links_[previous].hash, links_[previous].next);
}

std::uint32_t NameIndex::hashOf(std::string_view folded) {
  return static_cast<std::uint32_t>(std::hash<std::string_view>()(folded));
}

std::uint32_t NameIndex::match(const Entries& entries, std::string_view folded, std::uint32_t hash,
                               std::uint32_t from) const {
  while (from != kNone &&
         (links_[from].hash != hash || base::foldCase(entries[from].*name_) != folded)) {
    from = links_[from].next;
  }
  return from;
}

}  // namespace platform
