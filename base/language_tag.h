// Language tags and the look-up of RFC 4647 section 3.4. Pure functions; tags come out in lower
// case.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace base {

// Whether the text has the shape of a tag whose language is one of two or three letters: "de",
// "pt-BR", "zh-Hant-CN".
bool isLanguageTag(std::string_view text);

// The languages of a user, the one preferred most first: one tag, or a list as in "da, en-GB;q=0.8,
// en;q=0.7" (RFC 9110 section 12.5.4). "_" counts as "-". What is no tag is left out, and so is
// what the user does not want (q=0).
std::vector<std::string> languageRanges(std::string_view preference);

// The tags that a range matches, the closest first: itself, then without its last subtag, and so
// on. A single character does not stay at the end.
std::vector<std::string> matchingTags(const std::string& range);

}  // namespace base
