// What several tests of messages ask of a text.
#pragma once

#include <algorithm>
#include <string_view>

#include "mail/mime/kv_email.h"

namespace kelvado {

// An e-mail object that takes and gives UTF-8, so that tests say the same on every system.
class Utf8Email : public KvEmail {
 public:
  Utf8Email() { put_Utf8(true); }
};

inline std::size_t longestLine(std::string_view text) {
  std::size_t longest = 0;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find("\r\n"), text.size());
    longest = std::max(longest, end);
    text.remove_prefix(std::min(end + 2, text.size()));
  }
  return longest;
}

}  // namespace kelvado
