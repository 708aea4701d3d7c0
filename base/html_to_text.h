// What an HTML mail says, as plain text: for the readers who see no HTML. Pure functions over
// UTF-8. Everything is taken: what is no proper HTML comes out somehow, and nothing is fetched.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace base {

// Paragraphs are separated by blank lines. A link keeps its address behind its text, a picture its
// alternative text; lists have their marks; a row of a table is one line, its cells separated by
// " | ", unless a cell has blocks or a blank line in it, as where a table lays out a page. Elements
// that are hidden and comments are left out. "<%...%>" stays as it stands, in text and in
// addresses.
std::string htmlToText(std::string_view html);

// The text of the first <title>, on one line; nothing when there is none.
std::optional<std::string> htmlTitle(std::string_view html);

// With the entities of HTML 4 that stand for Latin-1 characters and punctuation, and all numeric
// ones, as the characters that they mean.
std::string withoutEntities(std::string_view html);

}  // namespace base
