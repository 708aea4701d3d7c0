#include "base/text.h"

#include <algorithm>

#include "base/ascii.h"
#include "base/hex_digit.h"
#include "base/unicode.h"

namespace base {
namespace {

constexpr std::size_t kMaxLoggedBytes = 4096;

bool isCarriedByLog(char c, bool validUtf8) {
  if (c == '\r' || c == '\n' || c == '\t') return true;
  return !isControl(c) && (validUtf8 || static_cast<unsigned char>(c) < 0x80);
}

}  // namespace

int replaceAll(std::string& text, std::string_view from, std::string_view to) {
  if (from.empty()) return 0;
  int count = 0;
  std::size_t done = 0;
  std::string out;
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, done)) {
    out.append(text, done, at - done).append(to);
    done = at + from.size();
    ++count;
  }
  if (count == 0) return 0;
  out.append(text, done, std::string::npos);
  text.swap(out);
  return count;
}

std::string_view takeLine(std::string_view& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  return line;
}

std::string quotedField(std::string_view text) {
  std::string quoted(text);
  replaceAll(quoted, "\"", "\"\"");
  return '"' + quoted + '"';
}

void appendCsvField(std::string_view text, std::string& line) {
  constexpr std::string_view kFormula = "=+-@\t\r";
  const bool formula = !text.empty() && kFormula.find(text.front()) != kFormula.npos;
  // Byte by byte: find_first_of() calls a function for each.
  const bool plain = std::none_of(text.begin(), text.end(), [](char c) {
    return c <= ',' && (c == ',' || c == '"' || c == '\r' || c == '\n');
  });
  const char* const mark = formula ? "'" : "";
  if (plain) {
    line.append(mark).append(text);
  } else {
    line += quotedField(mark + std::string(text));
  }
}

std::string withoutLineBreaks(std::string_view text) {
  std::string out(text);
  std::erase_if(out, [](char c) { return c == '\n' || c == '\r' || c == '\0'; });
  return out;
}

void appendWithCrLf(std::string_view text, std::string& out) {
  while (!text.empty()) {
    const std::size_t end = lineLength(text);
    out.append(text.substr(0, end));
    if (end == text.size()) return;
    out.append("\r\n");
    const bool crLf = text.substr(end, 2) == "\r\n";
    text.remove_prefix(end + (crLf ? 2 : 1));
  }
}

std::string loggable(std::string_view text) {
  const bool plain = std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= 0x20 && c < 0x7F && c != ']') || c == '\r' || c == '\n';
  });
  if (plain && text.size() <= kMaxLoggedBytes) return std::string(text);
  const bool cut = text.size() > kMaxLoggedBytes;
  text = text.substr(0, kMaxLoggedBytes);
  // A character cut in half makes the rest bytes, which is as readable for what a log is for.
  const bool validUtf8 = isValidUtf8(text);
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    if (isCarriedByLog(c, validUtf8)) {
      if (c == '>' && out.size() >= 2 && out.compare(out.size() - 2, 2, "]]") == 0) out += ' ';
      out += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      out.append("\\x").append(1, kHexDigits[byte >> 4]).append(1, kHexDigits[byte & 15]);
    }
  }
  if (cut) out += "...";
  return out;
}

std::string loggableLine(std::string_view text) {
  std::string line = loggable(text);
  std::replace_if(
      line.begin(), line.end(), [](char c) { return c == '\r' || c == '\n'; }, ' ');
  return line;
}

}  // namespace base
