#include "console/table.h"

#include <algorithm>
#include <array>
#include <numeric>

#include "base/ascii.h"
#include "base/text.h"
#include "platform/text/code_page.h"
#include "platform/text/text_lines.h"

namespace console {
namespace {

constexpr std::size_t kGap = 2;           // between two columns
constexpr std::size_t kComfortable = 16;  // a cut column keeps so much while others can be dropped
constexpr std::size_t kNarrowest = 8;     // a cut column
constexpr std::size_t kNarrowestWrap = 16;
constexpr std::string_view kCutMark = "..";

// Characters of double width: East Asian ones and pictures.
bool isWide(char32_t c) {
  struct Range {
    char32_t first, last;
  };
  static constexpr Range kWide[] = {{0x1100, 0x115F}, {0x2E80, 0xA4CF},   {0xAC00, 0xD7A3},
                                    {0xF900, 0xFAFF}, {0xFE30, 0xFE6F},   {0xFF00, 0xFF60},
                                    {0xFFE0, 0xFFE6}, {0x1F300, 0x1FAFF}, {0x20000, 0x3FFFD}};
  return std::any_of(std::begin(kWide), std::end(kWide),
                     [c](const Range& range) { return c >= range.first && c <= range.last; });
}

std::size_t widthOf(char32_t c) {
  const bool combining = (c >= 0x300 && c <= 0x36F) || (c >= 0x200B && c <= 0x200F);
  if (combining) return 0;
  return isWide(c) ? 2 : 1;
}

bool isPlainAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

// Where the character behind the one at `at` begins; `c` is the one at `at`.
std::size_t takeCharacter(const std::u16string& text, std::size_t at, char32_t& c) {
  const char16_t unit = text[at];
  const bool pair = unit >= 0xD800 && unit < 0xDC00 && at + 1 < text.size();
  c = pair ? 0x10000 + ((char32_t{unit} - 0xD800) << 10) + (text[at + 1] - 0xDC00U) : unit;
  return at + (pair ? 2 : 1);
}

// As much of the text as `width` columns hold, the rest marked as cut.
std::string cutTo(std::size_t width, const std::string& ansi) {
  if (displayWidth(ansi) <= width) return ansi;
  const std::u16string text = platform::ansiToUtf16(ansi);
  std::size_t used = kCutMark.size();
  std::size_t end = 0;
  for (char32_t c = 0; end < text.size();) {
    const std::size_t next = takeCharacter(text, end, c);
    if (used + widthOf(c) > width) break;
    used += widthOf(c);
    end = next;
  }
  return platform::utf16ToAnsi(text.substr(0, end)).append(kCutMark);
}

std::string blanks(std::size_t count) {
  return std::string(count, ' ');
}

std::string padded(const std::string& text, std::size_t width, bool right) {
  const std::size_t taken = displayWidth(text);
  const std::string fill = blanks(taken < width ? width - taken : 0);
  return right ? fill + text : text + fill;
}

// The lines of a text of that width, broken at blanks; a longer word is broken, too.
std::vector<std::string> linesOf(const std::string& text, std::size_t width) {
  std::vector<std::string> lines(1);
  std::size_t at = 0;
  while (at < text.size()) {
    std::size_t end = std::min(text.find(' ', at), text.size());
    std::string word = text.substr(at, end - at);
    at = end + 1;
    const std::size_t needed = displayWidth(word);
    const std::size_t used = displayWidth(lines.back());
    if (used != 0 && used + 1 + needed > width) lines.emplace_back();
    if (!lines.back().empty()) lines.back() += ' ';
    while (isPlainAscii(word) && word.size() > width) {
      lines.back() += word.substr(0, width);
      word.erase(0, width);
      lines.emplace_back();
    }
    lines.back() += word;
  }
  return lines;
}

// The layout of a table for people.
class Layout {
 public:
  Layout(const Table& table, const TextStyle& style) : table_(table), style_(style) {
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
      if (table.columns[i].fit != Fit::Hidden) shown_.push_back(i);
    }
    measure();
    fit();
  }

  std::string text() const {
    std::string head;
    for (const std::size_t i : shown_) {
      const std::string title = padded(table_.columns[i].title, widths_[i], numeric_[i]);
      head += (head.empty() ? "" : blanks(kGap)) + title;
    }
    head.erase(head.find_last_not_of(' ') + 1);
    std::string text = style_.heading(head) + '\n';
    table_.forEachRow([&](const std::vector<Value>& row) { addRow(row, text); });
    return text;
  }

 private:
  void measure() {
    widths_.assign(table_.columns.size(), 0);
    numeric_.assign(table_.columns.size(), false);
    std::vector<bool> others(table_.columns.size(), false);
    for (const std::size_t i : shown_) widths_[i] = displayWidth(table_.columns[i].title);
    table_.forEachRow([&](const std::vector<Value>& row) {
      for (const std::size_t i : shown_) {
        widths_[i] = std::max(widths_[i], displayWidth(row[i].text()));
        if (row[i].isNumber()) numeric_[i] = true;
        if (!row[i].isNumber() && !row[i].isNothing()) others[i] = true;
      }
    });
    for (const std::size_t i : shown_) numeric_[i] = numeric_[i] && !others[i];
  }

  // What all columns take; a wrapped one is content with less.
  std::size_t needed() const {
    std::size_t sum = shown_.empty() ? 0 : (shown_.size() - 1) * kGap;
    for (const std::size_t i : shown_) {
      const bool wraps = table_.columns[i].fit == Fit::Wrap;
      sum += wraps ? std::min(widths_[i], kNarrowestWrap) : widths_[i];
    }
    return sum;
  }

  void fit() {
    const auto width = static_cast<std::size_t>(style_.width);
    if (width == 0) return;
    cutDownTo(kComfortable, width);
    while (needed() > width && dropOne()) {
    }
    cutDownTo(kNarrowest, width);
    for (const std::size_t i : shown_) {
      if (table_.columns[i].fit != Fit::Wrap) continue;
      const std::size_t others = needed() - std::min(widths_[i], kNarrowestWrap);
      const std::size_t rest = width > others ? width - others : 0;
      widths_[i] = std::min(widths_[i], std::max(rest, kNarrowest));
    }
  }

  // Takes from the widest of the columns that may be cut, as long as the line is too long.
  void cutDownTo(std::size_t least, std::size_t width) {
    while (needed() > width) {
      std::size_t widest = table_.columns.size();
      for (const std::size_t i : shown_) {
        const bool cuts = table_.columns[i].fit == Fit::Cut && widths_[i] > least;
        if (cuts && (widest == table_.columns.size() || widths_[i] > widths_[widest])) widest = i;
      }
      if (widest == table_.columns.size()) return;
      --widths_[widest];
    }
  }

  bool dropOne() {
    const auto last = std::find_if(shown_.rbegin(), shown_.rend(), [this](std::size_t i) {
      return table_.columns[i].fit == Fit::Drop;
    });
    if (last == shown_.rend()) return false;
    shown_.erase(std::next(last).base());
    return true;
  }

  void addRow(const std::vector<Value>& row, std::string& text) const {
    std::string line;
    std::size_t pending = 0;  // blanks in front of the next column
    std::size_t left = 0;     // columns of the terminal before the next one
    std::vector<std::string> more;
    for (const std::size_t i : shown_) {
      std::string cell = row[i].text();
      if (table_.columns[i].fit == Fit::Wrap && style_.width != 0) {
        more = linesOf(cell, widths_[i]);
        cell = more.front();
      } else {
        cell = cutTo(widths_[i], cell);
      }
      const std::size_t fill = widths_[i] - std::min(widths_[i], displayWidth(cell));
      line += blanks(pending + (numeric_[i] ? fill : 0)) + style_.painted(row[i].tone(), cell);
      pending = kGap + (numeric_[i] ? 0 : fill);
      if (i != shown_.back()) left += widths_[i] + kGap;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + '\n';
    for (std::size_t i = 1; i < more.size(); ++i) {
      text += blanks(left) + style_.painted(row[shown_.back()].tone(), more[i]) + '\n';
    }
  }

  const Table& table_;
  const TextStyle& style_;
  std::vector<std::size_t> shown_;   // columns
  std::vector<std::size_t> widths_;  // of all columns
  std::vector<bool> numeric_;
};

}  // namespace

std::string TextStyle::painted(Tone tone, const std::string& text) const {
  if (!colour || tone == Tone::Plain || text.empty()) return text;
  static constexpr std::array<const char*, 5> kCodes = {"", "32", "33", "31", "2"};
  return std::string("\033[") + kCodes.at(static_cast<std::size_t>(tone)) + 'm' + text + "\033[0m";
}

std::string TextStyle::heading(const std::string& text) const {
  return colour ? "\033[1m" + text + "\033[0m" : text;
}

std::string TextStyle::paragraph(const std::string& first, std::size_t indent,
                                 const std::string& text) const {
  const std::size_t limit = static_cast<std::size_t>(std::max(width, 0));
  const std::size_t room = limit > indent + kNarrowestWrap ? limit - indent : kNarrowestWrap;
  const std::vector<std::string> lines =
      width == 0 ? std::vector<std::string>{text} : linesOf(text, room);
  std::string paragraph;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    paragraph += (i == 0 ? padded(first, indent, false) : blanks(indent)) + lines[i] + '\n';
  }
  return paragraph;
}

std::optional<std::string_view> Value::ownText() const {
  if (const auto* text = std::get_if<std::string_view>(&content_)) return *text;
  if (const auto* text = std::get_if<std::string>(&content_)) return *text;
  return std::nullopt;
}

std::string Value::text() const {
  if (const auto text = ownText()) {
    return isPlainAscii(*text) ? std::string(*text) : platform::loggableAnsiLine(*text);
  }
  if (const auto* number = std::get_if<std::int64_t>(&content_)) return std::to_string(*number);
  if (const auto* truth = std::get_if<bool>(&content_)) return *truth ? "yes" : "no";
  return "-";
}

JsonValue Value::json() const {
  if (const auto text = ownText()) return jsonText(*text);
  if (const auto* number = std::get_if<std::int64_t>(&content_)) return *number;
  if (const auto* truth = std::get_if<bool>(&content_)) return *truth;
  return nullptr;
}

void Value::appendCsv(std::string& line) const {
  if (const auto* truth = std::get_if<bool>(&content_)) {
    line += *truth ? '1' : '0';
  } else if (const auto* number = std::get_if<std::int64_t>(&content_)) {
    line += std::to_string(*number);
  } else if (const auto text = ownText()) {
    if (!base::contains8bit(*text)) return base::appendCsvField(*text, line);
    base::appendCsvField(platform::ansiToUtf8(*text), line);
  }
}

std::string Table::text(const TextStyle& style) const {
  return Layout(*this, style).text();
}

void Table::forEachRow(const std::function<void(const std::vector<Value>& row)>& take) const {
  for (const auto& row : rows) take(row);
  std::vector<Value> row;
  for (std::size_t i = 0; i < madeRows; ++i) {
    makeRow(i, row);
    take(row);
  }
}

void Table::csv(const TextSink& write) const {
  std::string line;
  for (const Column& column : columns) line.append(line.empty() ? "" : ",").append(column.key);
  write(line + "\r\n");
  forEachRow([&](const std::vector<Value>& row) {
    line.clear();
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (i != 0) line += ',';
      row[i].appendCsv(line);
    }
    line += "\r\n";
    write(line);
  });
}

void Table::json(const TextSink& write) const {
  std::vector<std::string> members;
  for (const Column& column : columns) members.push_back(JsonValue(column.key).dump() + ": ");
  const char* before = "[\n    {";
  std::string line;
  forEachRow([&](const std::vector<Value>& row) {
    line = before;
    before = ",\n    {";
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (i != 0) line += ", ";
      line += members[i];
      line += row[i].json().dump(-1, ' ', true);  // ASCII
    }
    line += '}';
    write(line);
  });
  write(*before == '[' ? "[]" : "\n  ]");
}

JsonValue jsonText(std::string_view ansi) {
  return platform::ansiToUtf8(ansi);
}

std::size_t displayWidth(const std::string& ansi) {
  if (isPlainAscii(ansi)) return ansi.size();
  const std::u16string text = platform::ansiToUtf16(ansi);
  std::size_t width = 0;
  for (std::size_t at = 0; at < text.size();) {
    char32_t c = 0;
    at = takeCharacter(text, at, c);
    if (c == U'\033') {  // the colours of painted()
      at = std::min(text.find(u'm', at), text.size() - 1) + 1;
    } else {
      width += widthOf(c);
    }
  }
  return width;
}

}  // namespace console
