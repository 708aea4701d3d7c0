// A hash table of chained entry numbers; see the header.
#include "platform/file/name_index.h"

#include <bit>
#include <functional>

#include "platform/file/case_fold.h"

namespace platform {

void NameIndex::build(const Entries& entries) {
  heads_.assign(std::bit_ceil(entries.size() + 1), kNone);
  links_.assign(entries.size(), kNone);
  // Backwards, so that each chain is in the order of the entries.
  for (std::size_t i = entries.size(); i-- > 0;) {
    std::uint32_t& head = heads_[bucketOf(foldCase(entries[i].*name_))];
    links_[i] = head;
    head = static_cast<std::uint32_t>(i);
  }
}

std::uint32_t NameIndex::first(const Entries& entries, std::string_view folded) const {
  return match(entries, folded, heads_[bucketOf(folded)]);
}

std::uint32_t NameIndex::next(const Entries& entries, std::string_view folded,
                              std::uint32_t previous) const {
  return match(entries, folded, links_[previous]);
}

std::size_t NameIndex::bucketOf(std::string_view folded) const {
  return std::hash<std::string_view>()(folded) & (heads_.size() - 1);
}

std::uint32_t NameIndex::match(const Entries& entries, std::string_view folded,
                               std::uint32_t from) const {
  while (from != kNone && foldCase(entries[from].*name_) != folded) from = links_[from];
  return from;
}

}  // namespace platform
