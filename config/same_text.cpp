#include "config/same_text.h"

#include <algorithm>

namespace config {

bool sameText(std::string_view text, std::string_view other) {
  const auto lower = [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
  };
  return std::equal(text.begin(), text.end(), other.begin(), other.end(),
                    [lower](char a, char b) { return lower(a) == lower(b); });
}

}  // namespace config
