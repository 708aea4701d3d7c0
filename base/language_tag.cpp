#include "base/language_tag.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "base/ascii.h"

namespace base {
namespace {

constexpr std::size_t kLongestSubtag = 8;
constexpr int kFullQuality = 1000;

bool isLetter(char c) {
  const char lower = lowerAscii(c);
  return lower >= 'a' && lower <= 'z';
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// What stands before the separator is taken off the text.
std::string_view takePart(std::string_view& text, char separator) {
  const std::size_t end = std::min(text.find(separator), text.size());
  const std::string_view part = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return part;
}

// In thousandths: 800 for "q=0.8". What cannot be read counts in full.
int quality(std::string_view parameter) {
  parameter = trimmed(parameter);
  if (!beginsWithNoCase(parameter, "q=") || parameter.size() < 3) return kFullQuality;
  parameter.remove_prefix(2);
  if (parameter.front() != '0') return kFullQuality;
  int thousandths = 0;
  int unit = kFullQuality / 10;
  for (const char digit : parameter.substr(std::min<std::size_t>(2, parameter.size()))) {
    if (!isDigit(digit)) return kFullQuality;
    thousandths += (digit - '0') * unit;
    unit /= 10;
  }
  return thousandths;
}

}  // namespace

bool isLanguageTag(std::string_view text) {
  const std::string_view language = takePart(text, '-');
  const bool known = language.size() == 2 || language.size() == 3;
  if (!known || !std::all_of(language.begin(), language.end(), isLetter)) return false;
  while (!text.empty()) {
    const std::string_view subtag = takePart(text, '-');
    if (subtag.empty() || subtag.size() > kLongestSubtag) return false;
    if (!std::all_of(subtag.begin(), subtag.end(),
                     [](char c) { return isLetter(c) || isDigit(c); })) {
      return false;
    }
  }
  return true;
}

std::vector<std::string> languageRanges(std::string_view preference) {
  std::vector<std::pair<int, std::string>> found;
  while (!preference.empty()) {
    std::string_view parameters = takePart(preference, ',');
    std::string range = lowered(trimmed(takePart(parameters, ';')));
    std::replace(range.begin(), range.end(), '_', '-');
    const int wanted = quality(parameters);
    if (wanted != 0 && isLanguageTag(range)) found.emplace_back(wanted, std::move(range));
  }
  std::stable_sort(found.begin(), found.end(),
                   [](const auto& left, const auto& right) { return left.first > right.first; });
  std::vector<std::string> ranges;
  for (auto& [wanted, range] : found) ranges.push_back(std::move(range));
  return ranges;
}

std::vector<std::string> matchingTags(const std::string& range) {
  std::vector<std::string> tags;
  std::string tag = range;
  while (!tag.empty()) {
    tags.push_back(tag);
    const std::size_t dash = tag.rfind('-');
    tag.resize(dash == std::string::npos ? 0 : dash);
    if (tag.size() > 2 && tag[tag.size() - 2] == '-') tag.resize(tag.size() - 2);
  }
  return tags;
}

}  // namespace base
