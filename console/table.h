// Rows of values with headings, and the three forms in which they are shown: columns for people,
// CSV and JSON for programs. Texts in values are in the ANSI code page, as everywhere in this
// system; CSV and JSON are UTF-8.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace console {

using JsonValue = nlohmann::ordered_json;

// What a value means to the reader; shown as its colour on a terminal.
enum class Tone { Plain, Good, Note, Bad, Faint };

// How texts for people are made up.
struct TextStyle {
  int width = 0;        // characters a line; 0: no limit
  bool colour = false;  // escape sequences are understood

  std::string painted(Tone tone, const std::string& text) const;
  std::string heading(const std::string& text) const;
  // The text in lines of the width, broken at blanks, each behind `indent` blanks; the first line
  // begins with `first` instead. With a line end.
  std::string paragraph(const std::string& first, std::size_t indent,
                        const std::string& text) const;
};

// Nothing, a truth, a number or a text.
class Value {
 public:
  Value() = default;
  Value(std::string text, Tone tone = Tone::Plain)  // NOLINT(google-explicit-constructor)
      : content_(std::move(text)), tone_(tone) {}
  Value(const char* text, Tone tone = Tone::Plain)  // NOLINT(google-explicit-constructor)
      : content_(std::string(text)), tone_(tone) {}
  Value(bool truth, Tone tone = Tone::Plain)  // NOLINT(google-explicit-constructor)
      : content_(truth), tone_(tone) {}
  template <std::integral Number>
  Value(Number number, Tone tone = Tone::Plain)  // NOLINT(google-explicit-constructor)
      : content_(static_cast<std::int64_t>(number)), tone_(tone) {}

  // A text that is not copied: it must outlive the value.
  static Value borrowed(std::string_view text, Tone tone = Tone::Plain) {
    Value value;
    value.content_ = text;
    value.tone_ = tone;
    return value;
  }

  bool isNumber() const { return std::holds_alternative<std::int64_t>(content_); }
  bool isNothing() const { return std::holds_alternative<std::monostate>(content_); }
  Tone tone() const { return tone_; }
  // In the ANSI code page, control characters replaced; a truth is "yes" or "no", nothing "-".
  std::string text() const;
  JsonValue json() const;  // nothing is null
  // Appends a field of CSV (RFC 4180) as base::appendCsvField makes it; a truth is 1 or 0.
  void appendCsv(std::string& line) const;

 private:
  std::optional<std::string_view> ownText() const;  // as it is; nothing when it is no text

  std::variant<std::monostate, bool, std::int64_t, std::string, std::string_view> content_;
  Tone tone_ = Tone::Plain;
};

// What happens to a column when a line of the terminal is too short for all.
enum class Fit {
  Whole,   // nothing
  Cut,     // long values are cut
  Drop,    // it is left out, the rightmost first; programs still get it
  Wrap,    // the last column: its values go on below
  Hidden,  // for programs only
};

struct Column {
  const char* key;    // the member of a row in JSON and the heading in CSV; never changed
  const char* title;  // for people
  Fit fit = Fit::Whole;
};

using TextSink = std::function<void(const std::string& text)>;

struct Table {
  std::vector<Column> columns;
  std::vector<std::vector<Value>> rows;  // each as long as `columns`
  // Further rows, which are made one by one whenever they are shown: all those of a large site
  // would take more memory than what they are made from.
  std::size_t madeRows = 0;
  std::function<void(std::size_t number, std::vector<Value>& row)> makeRow{};

  void forEachRow(const std::function<void(const std::vector<Value>& row)>& take) const;

  std::string text(const TextStyle& style) const;
  // Both piece by piece, in UTF-8: headings first, lines end in CR LF; an array of objects, one a
  // line.
  void csv(const TextSink& write) const;
  void json(const TextSink& write) const;
};

// ANSI text as JSON.
JsonValue jsonText(std::string_view ansi);

// How many columns of a terminal the ANSI text takes; painted texts are understood.
std::size_t displayWidth(const std::string& ansi);

}  // namespace console
