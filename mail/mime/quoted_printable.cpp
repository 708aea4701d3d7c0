#include "mail/mime/quoted_printable.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <utility>

#include "base/ascii.h"
#include "base/hex_digit.h"
#include "mail/mime/encoding_base.h"

namespace kelvado {
namespace {

constexpr std::size_t kLastColumn = kBodyLineLength - 1;  // one is kept for the '=' of a soft break
constexpr std::size_t kEscapeLength = 3;
constexpr std::size_t kRoomForALine =
    2 * std::size_t{kBodyLineLength};  // with what is stored behind its end
constexpr std::ptrdiff_t kWord = sizeof(std::uint64_t);

constexpr bool isLiteral(unsigned char byte) {
  return (byte >= 0x20 && byte <= 0x7E && byte != '=') || byte == '\t';
}
constexpr std::array<bool, 256> makeLiterals() {
  std::array<bool, 256> literals{};
  for (std::size_t i = 0; i < literals.size(); ++i) {
    literals[i] = isLiteral(static_cast<unsigned char>(i));
  }
  return literals;
}
constexpr std::array<bool, 256> kLiteral = makeLiterals();

constexpr std::uint64_t everyByte(std::uint64_t value) {
  return value * 0x0101010101010101U;
}

// Whether each of the eight bytes is 0x20 to 0x7E and no '='.
bool allLiteral(std::uint64_t word) {
  const auto zeroBytes = [](std::uint64_t bytes) { return (bytes - everyByte(0x01)) & ~bytes; };
  const std::uint64_t below = (word - everyByte(0x20)) & ~word;
  const std::uint64_t found =
      word | below | zeroBytes(word ^ everyByte('=')) | zeroBytes(word ^ everyByte(0x7F));
  return (found & everyByte(0x80)) == 0;
}

// What a byte becomes: itself or "=XX". Always stored as four characters, of which `length` count:
// a branch for each byte would cost more. CR and LF have the length 0: they are looked at apart.
struct Form {
  char characters[4];
  std::uint8_t length;
};
constexpr std::array<Form, 256> makeForms() {
  std::array<Form, 256> forms{};
  for (std::size_t i = 0; i < forms.size(); ++i) {
    if (kLiteral[i]) {
      forms[i] = {{static_cast<char>(i)}, 1};
    } else {
      forms[i] = {{'=', base::kHexDigits[i >> 4], base::kHexDigits[i & 0x0F]}, kEscapeLength};
    }
  }
  forms['\r'].length = 0;
  forms['\n'].length = 0;
  return forms;
}
constexpr std::array<Form, 256> kForms = makeForms();

// Builds lines in a small buffer that stays in the cache, and appends them in larger pieces.
class LineWriter {
 public:
  explicit LineWriter(std::string& out) : out_(out) {}
  ~LineWriter() { flush(); }
  LineWriter(const LineWriter&) = delete;
  LineWriter& operator=(const LineWriter&) = delete;

  // Takes bytes up to a CR or LF, or as many as the line has room for.
  void takeBytes(std::string_view& text) {
    const char* from = text.data();
    const char* const end = from + text.size();
    char* to = buffer_.data() + used_;
    const char* const lineEnd = to + (kLastColumn - column_);
    const char* const last = lineEnd - kEscapeLength;  // where any form still has room
    while (from < end && to <= last) {
      std::uint64_t word = 0;
      if (end - from >= kWord && lineEnd - to >= kWord) {
        std::memcpy(&word, from, sizeof word);
        if (allLiteral(word)) {
          std::memcpy(to, &word, sizeof word);
          from += kWord;
          to += kWord;
          continue;
        }
      }
      const char* const stop = from + std::min(end - from, kWord);
      const Form* form = nullptr;
      do {
        form = &kForms[static_cast<unsigned char>(*from)];
        std::memcpy(to, form->characters, sizeof form->characters);
        to += form->length;
        from += form->length != 0 ? 1 : 0;
      } while (form->length != 0 && from < stop && to <= last);
      if (form->length == 0) break;
    }
    while (from < end && to < lineEnd && kLiteral[static_cast<unsigned char>(*from)]) {
      *to++ = *from++;
    }
    advance(static_cast<std::size_t>(to - (buffer_.data() + used_)));
    text.remove_prefix(static_cast<std::size_t>(from - text.data()));
  }

  void escape(char c) {
    if (kLastColumn - column_ < kEscapeLength) softBreak();
    const auto byte = static_cast<unsigned char>(c);
    char* to = buffer_.data() + used_;
    to[0] = '=';
    to[1] = base::kHexDigits[byte >> 4];
    to[2] = base::kHexDigits[byte & 0x0F];
    advance(kEscapeLength);
  }

  // Whether lines were appended since this was asked last.
  bool hasFlushed() { return std::exchange(hasFlushed_, false); }

  void softBreak() {
    buffer_[used_++] = '=';
    endLine();
  }

  void hardBreak() {
    protectTrailingBlank();
    endLine();
  }

  // A blank at the end of a line would be lost on the way.
  void protectTrailingBlank() {
    if (column_ == 0 || !base::isBlank(buffer_[used_ - 1])) return;
    const char blank = buffer_[used_ - 1];
    --used_;
    --column_;
    escape(blank);
  }

 private:
  void advance(std::size_t characters) {
    used_ += characters;
    column_ += characters;
  }

  void endLine() {
    buffer_[used_++] = '\r';
    buffer_[used_++] = '\n';
    column_ = 0;
    if (used_ + kRoomForALine > buffer_.size()) flush();
  }

  void flush() {
    out_.append(buffer_.data(), used_);
    used_ = 0;
    hasFlushed_ = true;
  }

  std::string& out_;
  std::array<char, 4096> buffer_;
  std::size_t used_ = 0;
  std::size_t column_ = 0;
  bool hasFlushed_ = false;
};

bool isLineEnd(char c) {
  return c == '\r' || c == '\n';
}

// The length of the line end at the start of `text`, 0 when there is none.
std::size_t lineEndLength(std::string_view text, LineEnds lineEnds) {
  if (text.substr(0, 2) == "\r\n") return 2;
  if (lineEnds == LineEnds::Exact) return 0;
  return isLineEnd(text.front()) ? 1 : 0;
}

// One line, without its line end. True when it ends in a soft break.
bool decodeLine(std::string_view line, std::string& out) {
  while (!line.empty() && base::isBlank(line.back())) line.remove_suffix(1);
  while (!line.empty()) {
    const std::size_t escape = line.find('=');
    out.append(line.substr(0, escape));
    if (escape == std::string_view::npos) return false;
    line.remove_prefix(escape + 1);
    if (line.empty()) return true;
    const int high = base::hexValue(line[0]);
    const int low = line.size() > 1 ? base::hexValue(line[1]) : -1;
    if (high < 0 || low < 0) {
      out.push_back('=');
    } else {
      out.push_back(static_cast<char>(high * 16 + low));
      line.remove_prefix(2);
    }
  }
  return false;
}

}  // namespace

void quotedPrintableAppend(std::string_view bytes, LineEnds lineEnds, std::string& out,
                           const std::function<bool()>& drain) {
  if (drain == nullptr) out.reserve(out.size() + bytes.size() + bytes.size() / 32);
  LineWriter lines(out);
  while (!bytes.empty()) {
    if (lines.hasFlushed() && drain != nullptr && !drain()) return;
    lines.takeBytes(bytes);
    if (bytes.empty()) break;
    const std::size_t lineEnd = lineEndLength(bytes, lineEnds);
    if (lineEnd > 0) {
      lines.hardBreak();
      bytes.remove_prefix(lineEnd);
    } else if (isLineEnd(bytes.front())) {
      lines.escape(bytes.front());
      bytes.remove_prefix(1);
    } else {
      lines.softBreak();  // the line is full
    }
  }
  lines.protectTrailingBlank();
}

std::string quotedPrintableDecode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const std::size_t newline = text.find('\n');
    std::string_view line = text.substr(0, newline);
    const bool crLf = newline != std::string_view::npos && !line.empty() && line.back() == '\r';
    if (crLf) line.remove_suffix(1);
    const bool goesOn = decodeLine(line, out);
    if (newline == std::string_view::npos) break;
    if (!goesOn) out.append(crLf ? "\r\n" : "\n");
    text.remove_prefix(newline + 1);
  }
  return out;
}

}  // namespace kelvado
