// Finds the entries of a snapshot by one of their names, without regard to case. Used by
// SnapshotDirectory. Refers to nothing: the entries are handed to each call, unchanged in number,
// order and name.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/hash_index.h"
#include "platform/directory/directory_snapshot.h"

namespace platform {

class NameIndex {
 public:
  using Name = std::string DirectoryEntry::*;
  using Entries = std::vector<DirectoryEntry>;
  static constexpr std::uint32_t kNone = base::HashIndex::kNone;

  explicit NameIndex(Name name) : name_(name) {}

  bool built() const { return !index_.empty(); }
  void build(const Entries& entries);

  // Whether no two entries have the same name.
  bool unique() const { return unique_; }

  // The first entry of that name (folded), then those after `previous`, in their order; kNone when
  // there is no more.
  std::uint32_t first(const Entries& entries, std::string_view folded) const;
  std::uint32_t next(const Entries& entries, std::string_view folded, std::uint32_t previous) const;

 private:
  Name name_;
  base::HashIndex index_;
  bool unique_ = true;
};

}  // namespace platform
