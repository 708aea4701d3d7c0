// Finds the entries of a snapshot by one of their names, without regard to case, in constant time
// and with some twenty bytes an entry. Used by SnapshotDirectory. Refers to nothing: the entries
// are handed to each call, unchanged in number, order and name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/directory/directory_snapshot.h"

namespace platform {

class NameIndex {
 public:
  using Name = std::string DirectoryEntry::*;
  using Entries = std::vector<DirectoryEntry>;
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;

  explicit NameIndex(Name name) : name_(name) {}

  bool built() const { return !heads_.empty(); }
  void build(const Entries& entries);

  // Whether no two entries have the same name.
  bool unique() const { return unique_; }

  // The first entry of that name (folded), then those after `previous`, in their order; kNone when
  // there is no more.
  std::uint32_t first(const Entries& entries, std::string_view folded) const;
  std::uint32_t next(const Entries& entries, std::string_view folded, std::uint32_t previous) const;

 private:
  // What there is to know of an entry without looking at it: most that share a bucket are told
  // apart by their hash, and entries lie far apart in memory.
  struct Link {
    std::uint32_t next = kNone;  // in the bucket
    std::uint32_t hash = 0;
  };

  static std::uint32_t hashOf(std::string_view folded);
  std::uint32_t match(const Entries& entries, std::string_view folded, std::uint32_t hash,
                      std::uint32_t from) const;

  Name name_;
  std::vector<std::uint32_t> heads_;  // of the buckets, a power of two of them
  std::vector<Link> links_;           // of the entries
  bool unique_ = true;
};

}  // namespace platform
