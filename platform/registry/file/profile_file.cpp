// The look-ups of profile_file.h in a file read anew for each; the older installations' store that
// they serve is small and seldom read.
#include "platform/registry/profile_file.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "base/ascii.h"
#include "base/case_fold.h"
#include "platform/system/files.h"
#include "platform/text/text_lines.h"

namespace platform {
namespace {

constexpr std::size_t kMaxProfileBytes = std::size_t{1024} * 1024;

bool isSection(std::string_view line, std::string_view folded) {
  const std::size_t end = line.find(']');
  return end != std::string_view::npos &&
         base::foldCase(base::trimmed(line.substr(1, end - 1))) == folded;
}

std::string_view unquoted(std::string_view value) {
  const bool quoted = value.size() >= 2 && value.front() == value.back() &&
                      (value.front() == '"' || value.front() == '\'');
  return quoted ? value.substr(1, value.size() - 2) : value;
}

std::optional<std::string> findValue(const std::string& file, const std::string& section,
                                     const std::string& key) {
  std::string bytes;
  if (!readWholeFile(file, bytes, kMaxProfileBytes)) return std::nullopt;
  const bool utf16 = bytes.starts_with("\xFF\xFE");
  const std::size_t start = utf16 ? 2 : bytes.starts_with("\xEF\xBB\xBF") ? 3 : 0;
  const std::string wantedSection = base::foldCase(section);
  const std::string wantedKey = base::foldCase(key);
  bool inSection = false;
  for (TextLines lines(bytes, start, utf16); lines.next();) {
    const std::string_view line = base::trimmed(lines.text());
    if (line.starts_with('[')) {
      if (inSection) return std::nullopt;  // a later section of the same name is never looked at
      inSection = isSection(line, wantedSection);
      continue;
    }
    const std::size_t equals = line.find('=');
    if (!inSection || line.starts_with(';') || equals == std::string_view::npos) continue;
    if (base::foldCase(base::trimmed(line.substr(0, equals))) == wantedKey) {
      return std::string(unquoted(base::trimmed(line.substr(equals + 1))));
    }
  }
  return std::nullopt;
}

}  // namespace

std::string profileString(const std::string& file, const std::string& section,
                          const std::string& key, const std::string& fallback,
                          std::size_t capacity) {
  std::string value = findValue(file, section, key).value_or(fallback);
  if (value.size() >= capacity) value.resize(capacity == 0 ? 0 : capacity - 1);
  return value;
}

std::uint32_t profileInt(const std::string& file, const std::string& section,
                         const std::string& key, std::int32_t fallback) {
  const std::optional<std::string> value = findValue(file, section, key);
  if (!value.has_value()) return static_cast<std::uint32_t>(fallback);
  std::string_view digits = *value;
  const bool negative = digits.starts_with('-');
  if (negative || digits.starts_with('+')) digits.remove_prefix(1);
  std::uint32_t number = 0;  // wraps at 2^32, as the system's own reader does
  for (const char c : digits) {
    if (c < '0' || c > '9') break;
    number = number * 10 + static_cast<std::uint32_t>(c - '0');
  }
  return negative ? 0 - number : number;
}

}  // namespace platform
