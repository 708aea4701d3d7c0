// Finds numbered entries by the hash of their names, in constant time and with some twenty bytes an
// entry. It holds no names: the caller hashes them, and says which entry is the one looked for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace base {

class HashIndex {
 public:
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;

  // Empties it, and makes room for `entries`.
  void reset(std::size_t entries);
  bool empty() const { return heads_.empty(); }

  // Puts an entry in front of those of the same hash. Its number may be any that is not in yet;
  // memory is in proportion to the highest.
  void put(std::uint32_t entry, std::uint32_t hash);

  // The first entry of that hash for which `matches(entry)` holds, and the next behind one; kNone
  // when there is none.
  template <typename Matches>
  std::uint32_t first(std::uint32_t hash, Matches matches) const {
    return heads_.empty() ? kNone : match(heads_[bucketOf(hash)], hash, matches);
  }
  template <typename Matches>
  std::uint32_t next(std::uint32_t entry, Matches matches) const {
    return match(links_[entry].next, links_[entry].hash, matches);
  }

 private:
  // What there is to know of an entry without looking at it: most that share a bucket differ in
  // their hash, and entries lie far apart in memory.
  struct Link {
    std::uint32_t next = kNone;  // in the bucket
    std::uint32_t hash = 0;
  };

  std::size_t bucketOf(std::uint32_t hash) const { return hash & (heads_.size() - 1); }
  void grow();

  template <typename Matches>
  std::uint32_t match(std::uint32_t from, std::uint32_t hash, Matches matches) const {
    while (from != kNone && (links_[from].hash != hash || !matches(from))) {
      from = links_[from].next;
    }
    return from;
  }

  std::vector<std::uint32_t> heads_;  // of the buckets, a power of two of them
  std::vector<Link> links_;           // of the entries
};

}  // namespace base
