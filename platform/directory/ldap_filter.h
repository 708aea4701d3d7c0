// Search filters (RFC 4515) over the entries of a directory snapshot.
// Pure; a filter that was parsed may be used by several threads. At most 8,192 bytes of text and 32
// levels of parentheses.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/directory/entry_attributes.h"

namespace platform {

// and, or, not, equality, presence, substrings, >=, <=, ~= (as equality), and the two matching
// rules for bits of a number. A "!" without parentheses around its operand is taken, as Active
// Directory takes it. As there, objectCategory is met by a class's short name ("user" and "person"
// share the category Person) as well as by the category's distinguished name.
class LdapFilter {
 public:
  // Nothing when the text is not a filter.
  static std::optional<LdapFilter> parse(std::string_view text);

  bool matches(const DirectoryEntry& entry) const;

  // The logon name (folded) that every match has to have, when the filter says so.
  std::optional<std::string> requiredLogonName() const;

 private:
  friend class LdapFilterParser;

  enum class Kind {
    And,
    Or,
    Not,
    Equal,
    Present,
    Substrings,
    AtLeast,
    AtMost,
    BitAnd,
    BitOr,
    None
  };
  // RFC 4511 section 4.5.1.7: what the directory does not know is neither true nor false.
  enum class Truth { False, Undefined, True };

  struct Node {
    Kind kind = Kind::None;
    const EntryAttribute* attribute = nullptr;  // null: the directory does not know it
    std::vector<std::string> values;            // folded; of Substrings: initial, any..., final
    std::optional<std::int64_t> number;
    std::vector<Node> operands;
  };

  static Truth evaluate(const Node& node, const DirectoryEntry& entry);
  static Truth evaluateItem(const Node& node, const DirectoryEntry& entry);
  static Truth evaluateNumber(const Node& node, const DirectoryEntry& entry);
  static const Node* logonNameItem(const Node& node);

  Node root_;
};

// A value as it is to stand in a filter (RFC 4515 section 3).
std::u16string escapeFilterValue(std::u16string_view value);

}  // namespace platform
