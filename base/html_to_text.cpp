#include "base/html_to_text.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "base/ascii.h"
#include "base/text.h"

namespace base {
namespace {

constexpr std::string_view kNoBreakSpace = "\xC2\xA0";
constexpr std::size_t kMaxDepth = 200;  // of lists and tables; in deeper ones only text counts

struct Tag {
  std::string name;  // lower case
  bool closes = false;
  std::string_view attributes;
  std::size_t length = 0;  // with the angle brackets

  std::string attribute(std::string_view wanted) const;
};

bool isNameCharacter(char c) {
  const char lower = lowerAscii(c);
  return (lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == ':';
}

// The value of the attribute, entities decoded; empty when there is none.
std::string Tag::attribute(std::string_view wanted) const {
  std::string_view rest = attributes;
  while (!rest.empty()) {
    const std::size_t begin =
        std::min(static_cast<std::size_t>(std::find_if(rest.begin(), rest.end(), isNameCharacter) -
                                          rest.begin()),
                 rest.size());
    rest.remove_prefix(begin);
    const auto nameEnd = std::find_if_not(rest.begin(), rest.end(), isNameCharacter);
    const std::string_view found = rest.substr(0, static_cast<std::size_t>(nameEnd - rest.begin()));
    rest.remove_prefix(found.size());
    while (!rest.empty() && isSpace(rest.front())) rest.remove_prefix(1);
    std::string_view value;
    if (rest.starts_with('=')) {
      rest.remove_prefix(1);
      while (!rest.empty() && isSpace(rest.front())) rest.remove_prefix(1);
      const bool quoted = rest.starts_with('"') || rest.starts_with('\'');
      const std::size_t end = quoted ? rest.find(rest.front(), 1) : rest.find_first_of(" \t\r\n\f");
      value =
          rest.substr(quoted ? 1 : 0, end == std::string_view::npos ? end : end - (quoted ? 1 : 0));
      rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    }
    if (!found.empty() && equalsNoCase(found, wanted)) return withoutEntities(value);
    if (found.empty() && value.empty() && !rest.empty()) rest.remove_prefix(1);
  }
  return "";
}

// The tag, comment or declaration (without a name) at the start of `html`; of length 0 when the "<"
// is text. A ">" inside quotation marks ends no tag.
Tag tagAt(std::string_view html) {
  Tag tag;
  if (html.starts_with("<!--")) {
    const std::size_t end = html.find("-->");
    tag.length = end == std::string_view::npos ? html.size() : end + 3;
    return tag;
  }
  std::size_t at = 1;
  tag.closes = html.substr(at).starts_with('/');
  if (tag.closes) ++at;
  const bool declaration = at < html.size() && (html[at] == '!' || html[at] == '?');
  const std::size_t name = at;
  while (at < html.size() && isNameCharacter(html[at])) ++at;
  if (at == name && !declaration) return tag;
  tag.name = lowered(html.substr(name, at - name));
  const std::size_t attributes = at;
  char quote = 0;
  for (; at < html.size() && (quote != 0 || html[at] != '>'); ++at) {
    if (quote != 0 ? html[at] == quote : html[at] == '"' || html[at] == '\'') {
      quote = quote != 0 ? '\0' : html[at];
    }
  }
  tag.attributes = html.substr(attributes, at - attributes);
  tag.length = std::min(at + 1, html.size());
  return tag;
}

bool isOneOf(std::string_view name, std::initializer_list<std::string_view> names) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

bool hasNoEnd(std::string_view name) {
  return isOneOf(name, {"area", "base", "br", "col", "hr", "img", "input", "link", "meta", "wbr"});
}

bool isHidden(const Tag& tag) {
  std::string style = lowered(tag.attribute("style"));
  style.erase(std::remove_if(style.begin(), style.end(), isSpace), style.end());
  return style.find("display:none") != std::string::npos;
}

// Blocks that stand apart, by a blank line.
bool isParagraph(std::string_view name) {
  return isOneOf(name,
                 {"p", "h1", "h2", "h3", "h4", "h5", "h6", "table", "blockquote", "pre", "dl"});
}

bool isBlock(std::string_view name) {
  return isParagraph(name) ||
         isOneOf(name, {"html",       "body", "div",    "section", "article", "header",   "footer",
                        "main",       "nav",  "center", "form",    "address", "fieldset", "figure",
                        "figcaption", "dt",   "dd",     "caption", "thead",   "tbody",    "tfoot",
                        "ul",         "ol",   "li",     "tr",      "td",      "th"});
}

// Text that grows line by line: blanks are one blank, and line ends are written when more follows.
class Lines {
 public:
  void breakLine(int lineEnds) {
    if (text_.empty()) return;
    pendingEnds_ = std::max(pendingEnds_, lineEnds);
    pendingBlank_ = false;
  }

  void add(std::string_view text) {
    for (const char c : text) {
      if (isSpace(c)) {
        pendingBlank_ = !atLineStart();
      } else {
        addCharacter(c);
      }
    }
  }

  // As it stands, line ends included.
  void addVerbatim(std::string_view text) {
    for (const char c : text) {
      if (c == '\n' && !text_.empty()) {
        pendingEnds_ = std::min(pendingEnds_ + 1, 2);
      } else if (c != '\r' && c != '\n') {
        addCharacter(c);
      }
    }
  }

  bool atLineStart() const { return text_.empty() || pendingEnds_ > 0; }
  const std::string& text() const { return text_; }

 private:
  void addCharacter(char c) {
    text_.append(static_cast<std::size_t>(pendingEnds_), '\n');
    if (pendingBlank_) text_ += ' ';
    pendingEnds_ = 0;
    pendingBlank_ = false;
    text_ += c;
  }

  std::string text_;
  int pendingEnds_ = 0;
  bool pendingBlank_ = false;
};

// The lines behind the first one begin so far to the right.
std::string indented(std::string_view text, std::size_t columns) {
  std::string result;
  while (!text.empty()) {
    const std::string_view line = takeLine(text);
    if (!result.empty()) result += '\n';
    if (!result.empty() && !line.empty()) result.append(columns, ' ');
    result += line;
  }
  return result;
}

std::string inOneLine(std::string_view text) {
  Lines line;
  line.add(text);
  return line.text();
}

class Converter {
 public:
  std::string convert(std::string_view html) {
    open_.push_back({});
    while (!html.empty()) {
      const std::size_t tagBegin = textEnd(html);
      addText(html.substr(0, tagBegin));
      html.remove_prefix(tagBegin);
      if (html.empty()) break;
      const Tag tag = tagAt(html);
      if (tag.length == 0) {
        addText(html.substr(0, 1));
        html.remove_prefix(1);
        continue;
      }
      html.remove_prefix(tag.length);
      if (!tag.name.empty()) take(tag, html);
    }
    while (open_.size() > 1) close();
    std::string text = open_.front().lines.text();
    return text.empty() ? text : text + '\n';
  }

 private:
  // A list item, a table, a row or a cell that is open: its text is put into the one around it when
  // it is closed.
  struct Cell {
    std::string text;
    bool hasBlocks;  // its line ends are more than those of <br>
  };
  struct Box {
    std::string name;
    Lines lines;
    bool hasBlocks = false;
    std::vector<Cell> cells;  // of a row
    int number = 0;           // of the list's last item; of an item: its own, 0: none
  };

  // Where the next tag begins. A token of a template is text.
  static std::size_t textEnd(std::string_view html) {
    std::size_t at = 0;
    while ((at = html.find('<', at)) != std::string_view::npos &&
           html.substr(at).starts_with("<%")) {
      ++at;
    }
    return std::min(at, html.size());
  }

  Lines& lines() { return open_.back().lines; }

  void addText(std::string_view html) {
    if (html.empty()) return;
    std::string text = withoutEntities(html);
    if (verbatim_ > 0) {
      lines().addVerbatim(text);
    } else {
      lines().add(text);
    }
  }

  void take(const Tag& tag, std::string_view& rest) {
    const std::string& name = tag.name;
    const bool skipped =
        isOneOf(name, {"head", "style", "script", "title", "template", "noscript"});
    if (!tag.closes && !hasNoEnd(name) && (skipped || isHidden(tag))) return skip(name, rest);
    if (name == "br") return lines().breakLine(pendingBreak());
    if (name == "hr") return rule();
    if (name == "img") return addText(tag.attribute("alt"));
    if (name == "a") return link(tag);
    if (name == "pre") verbatim_ = tag.closes ? std::max(verbatim_ - 1, 0) : verbatim_ + 1;
    if (isOneOf(name, {"ul", "ol", "li", "table", "tr", "td", "th"})) return box(tag);
    if (!isBlock(name)) return;
    open_.back().hasBlocks = true;
    lines().breakLine(isParagraph(name) ? 2 : 1);
  }

  // A second line break makes a blank line.
  int pendingBreak() { return lines().atLineStart() ? 2 : 1; }

  void rule() {
    lines().breakLine(1);
    lines().add("----------");
    lines().breakLine(1);
  }

  // The text up to the end of the element, which may hold others of its name.
  static void skip(const std::string& name, std::string_view& rest) {
    for (int depth = 1; depth > 0 && !rest.empty();) {
      const std::size_t next = rest.find('<');
      rest.remove_prefix(std::min(next, rest.size()));
      if (rest.empty()) return;
      const Tag tag = tagAt(rest);
      rest.remove_prefix(std::max<std::size_t>(tag.length, 1));
      if (tag.name == name) depth += tag.closes ? -1 : 1;
    }
  }

  // The address stands behind the link's text, unless it is that text or is of no use to a reader.
  void link(const Tag& tag) {
    if (!tag.closes) {
      address_ = tag.attribute("href");
      linkBegin_ = lines().text().size();
      return;
    }
    std::string address = address_;
    address_.clear();
    if (address.empty() || address.front() == '#') return;
    const std::string& all = lines().text();
    const std::string_view shown =
        trimmed(std::string_view(all).substr(std::min(linkBegin_, all.size())));
    constexpr std::string_view kMailTo = "mailto:";
    if (beginsWithNoCase(address, kMailTo)) address.erase(0, kMailTo.size());
    if (shown == address || shown.empty() || address.ends_with("//" + std::string(shown))) {
      if (shown.empty()) lines().add(address);
      return;
    }
    lines().add(" <" + address + ">");
  }

  void box(const Tag& tag) {
    const std::string& name = tag.name;
    const bool list = isOneOf(name, {"ul", "ol"});
    if (tag.closes) {
      closeUpTo(name);
      return;
    }
    if (open_.size() >= kMaxDepth) return lines().breakLine(1);
    // What the new one ends: an item ends the one before it, a cell a cell, a row a row.
    if (name == "li") closeSibling({"li"}, {"ul", "ol"});
    if (name == "tr") closeSibling({"tr"}, {"table"});
    if (isOneOf(name, {"td", "th"})) closeSibling({"td", "th"}, {"tr"});
    Box opened;
    opened.name = name;
    if (name == "li") {
      Box& around = open_.back();
      opened.number = around.name == "ol" ? ++around.number : 0;
    }
    if (list || name == "table") lines().breakLine(list && open_.back().name == "li" ? 1 : 2);
    open_.push_back(std::move(opened));
  }

  // Closes the innermost box of one of these names, unless one of `around` is further in.
  void closeSibling(std::initializer_list<std::string_view> names,
                    std::initializer_list<std::string_view> around) {
    for (std::size_t i = open_.size(); i-- > 1;) {
      if (isOneOf(open_[i].name, around)) return;
      if (!isOneOf(open_[i].name, names)) continue;
      while (open_.size() > i) close();
      return;
    }
  }

  void closeUpTo(const std::string& name) {
    // What closes a part of a table closes none outside of it.
    for (std::size_t i = open_.size(); i-- > 1;) {
      if (open_[i].name == name) {
        while (open_.size() > i) close();
        return;
      }
      if (open_[i].name == "table" && isOneOf(name, {"tr", "td", "th", "li"})) return;
    }
  }

  void close() {
    const Box closed = std::move(open_.back());
    open_.pop_back();
    const std::string& text = closed.lines.text();
    Box& around = open_.back();
    if (isOneOf(closed.name, {"td", "th"})) {
      if (around.name != "tr") {
        put(around, text, 1);
      } else if (!text.empty()) {
        around.cells.push_back({text, closed.hasBlocks});
      }
    } else if (closed.name == "tr") {
      put(around, rowText(closed), 1);
    } else if (closed.name == "li") {
      const std::string mark = closed.number == 0 ? "- " : std::to_string(closed.number) + ". ";
      if (!text.empty()) put(around, mark + indented(text, mark.size()), 1);
    } else {
      put(around, text, around.name == "li" ? 1 : 2);
    }
  }

  static void put(Box& around, const std::string& text, int lineEnds) {
    around.hasBlocks = true;
    around.lines.breakLine(lineEnds);
    around.lines.addVerbatim(text);
    around.lines.breakLine(lineEnds);
  }

  static bool laysOutPage(const Cell& cell) {
    return cell.text.find(cell.hasBlocks ? "\n" : "\n\n") != std::string::npos;
  }

  static std::string rowText(const Box& row) {
    const std::vector<Cell>& cells = row.cells;
    const bool oneLine = cells.size() > 1 && std::none_of(cells.begin(), cells.end(), laysOutPage);
    std::string text = row.lines.text();
    for (const Cell& cell : cells) {
      text += text.empty() ? "" : oneLine ? " | " : "\n\n";
      text += oneLine ? inOneLine(cell.text) : cell.text;
    }
    return text;
  }

  std::vector<Box> open_;
  int verbatim_ = 0;
  std::string address_;  // of the link that is open
  std::size_t linkBegin_ = 0;
};

}  // namespace

std::string htmlToText(std::string_view html) {
  std::string text = Converter().convert(html);
  replaceAll(text, kNoBreakSpace, " ");
  return text;
}

std::optional<std::string> htmlTitle(std::string_view html) {
  for (std::size_t at = 0; (at = html.find('<', at)) != std::string_view::npos; ++at) {
    const Tag tag = tagAt(html.substr(at));
    if (tag.name.empty() && tag.length > 0) at += tag.length - 1;
    if (tag.name != "title" || tag.closes) continue;
    std::string_view rest = html.substr(at + tag.length);
    std::size_t end = 0;
    while ((end = rest.find("</", end)) != std::string_view::npos &&
           !beginsWithNoCase(rest.substr(end), "</title")) {
      ++end;
    }
    return inOneLine(withoutEntities(rest.substr(0, end)));
  }
  return std::nullopt;
}

}  // namespace base
