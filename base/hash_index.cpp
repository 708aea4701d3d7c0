#include "base/hash_index.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace base {
namespace {

constexpr std::size_t kFewestBuckets = 1024;

}  // namespace

void HashIndex::reset(std::size_t entries) {
  heads_.assign(std::bit_ceil(std::max(entries * 2 + 1, kFewestBuckets)), kNone);
  links_.clear();
  links_.reserve(entries);
}

void HashIndex::put(std::uint32_t entry, std::uint32_t hash) {
  if (entry >= links_.size()) links_.resize(std::size_t{entry} + 1);
  if (links_.size() > heads_.size() / 2) grow();
  std::uint32_t& head = heads_[bucketOf(hash)];
  links_[entry] = {head, hash};
  head = entry;
}

// Twice the buckets. Entries of one hash stay in their order: each bucket is taken apart from its
// end, which is found by turning it round first.
void HashIndex::grow() {
  const std::vector<std::uint32_t> before = std::move(heads_);
  heads_.assign(std::bit_ceil(std::max(links_.size() * 2, kFewestBuckets)), kNone);
  for (std::uint32_t entry : before) {
    std::uint32_t reversed = kNone;
    while (entry != kNone) {
      const std::uint32_t next = links_[entry].next;
      links_[entry].next = reversed;
      reversed = entry;
      entry = next;
    }
    while (reversed != kNone) {
      const std::uint32_t next = links_[reversed].next;
      std::uint32_t& head = heads_[bucketOf(links_[reversed].hash)];
      links_[reversed].next = head;
      head = reversed;
      reversed = next;
    }
  }
}

}  // namespace base
