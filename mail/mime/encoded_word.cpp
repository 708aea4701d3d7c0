#include "mail/mime/encoded_word.h"

#include <algorithm>
#include <array>

#include "base/ascii.h"
#include "base/hex_digit.h"
#include "base/unicode.h"
#include "mail/mime/base64.h"
#include "mail/mime/charset.h"

namespace kelvado {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t kMaxCharsetName = 64;  // of a word that is read; longer is no charset

constexpr std::string_view kBCharsets[] = {
    "shift_jis",  "shift-jis",    "iso-2022-jp", "euc-jp",      "euc-kr",     "iso-2022-kr",
    "gb2312",     "hz-gb-2312",   "euc-cn",      "cp-936",      "euc-tw",     "big5",
    "cp-950",     "cp-932",       "tis-620",     "windows-874", "iso-8859-9", "windows-1254",
    "iso-8859-6", "windows-1256", "cp-1256"};

// Only what RFC 2047 section 5 (3) allows in a display name: such words are right everywhere.
constexpr bool isPlainInQ(unsigned char byte) {
  return (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
         (byte >= 'a' && byte <= 'z') || byte == '!' || byte == '*' || byte == '+' || byte == '-' ||
         byte == '/';
}

void appendEscaped(char c, std::string& out) {
  const auto byte = static_cast<unsigned char>(c);
  out.push_back('=');
  out.push_back(base::kHexDigits[byte >> 4]);
  out.push_back(base::kHexDigits[byte & 0x0F]);
}

std::string encodeQ(std::string_view bytes) {
  std::string out;
  for (const char c : bytes) {
    if (isPlainInQ(static_cast<unsigned char>(c))) {
      out.push_back(c);
    } else if (c == ' ') {
      out.push_back('_');
    } else {
      appendEscaped(c, out);
    }
  }
  return out;
}

enum class Form { Q, B };

// Cuts text into words of one charset and form.
class WordEncoder {
 public:
  WordEncoder(Form form, std::string_view charset) : form_(form), charset_(charset) {
    // Without a way to convert, the words are what the text is held in.
    std::string converted;
    if (!EncodingConvert::fromUtf8(charset_, "", converted)) charset_ = Charset("utf-8");
  }

  bool canCarry(std::string_view utf8) const { return EncodingConvert::carries(charset_, utf8); }

  bool isUtf8() const { return charset_.isUtf8(); }

  // The characters at the start of `utf8` that fit in a word of `room` characters: how many bytes.
  // At least one character.
  std::size_t measure(std::string_view utf8, std::size_t room) const {
    const std::size_t frame = prefix().size() + 2;
    const std::size_t textRoom = room > frame ? room - frame : 0;
    std::size_t bytes = 0;
    std::size_t columns = 0;
    while (bytes < utf8.size()) {
      const std::size_t next = bytes + base::utf8CharacterLength(utf8.substr(bytes));
      columns = isUtf8() ? columnsAfter(columns, utf8.substr(bytes, next - bytes), next)
                         : encodedText(utf8.substr(0, next)).size();
      if (columns > textRoom && bytes > 0) break;
      bytes = next;
    }
    return bytes;
  }

  std::string word(std::string_view utf8) const { return prefix() + encodedText(utf8) + "?="; }

  std::size_t shortestWord() const { return prefix().size() + 2 + kRoomForACharacter; }

 private:
  static constexpr std::size_t kRoomForACharacter = 12;  // four bytes, each "=XX"

  std::string prefix() const { return "=?" + charset_.name() + (form_ == Form::Q ? "?Q?" : "?B?"); }

  // Without encoding again from the start of the word.
  std::size_t columnsAfter(std::size_t columns, std::string_view character,
                           std::size_t totalBytes) const {
    if (form_ == Form::B) return (totalBytes + 2) / 3 * 4;
    for (const char c : character) {
      columns += isPlainInQ(static_cast<unsigned char>(c)) || c == ' ' ? 1 : 3;
    }
    return columns;
  }

  std::string encodedText(std::string_view utf8) const {
    std::string bytes;
    EncodingConvert::fromUtf8(charset_, utf8, bytes);
    return form_ == Form::Q ? encodeQ(bytes) : base64Encode(bytes);
  }

  Form form_;
  Charset charset_;
};

std::string encodeWords(Form form, std::string_view utf8, std::string_view charset,
                        std::size_t column) {
  const std::string repaired = repairedUtf8(utf8);
  std::string_view text = repaired;
  WordEncoder encoder(form, charset.empty() ? "utf-8" : charset);
  if (!encoder.canCarry(text)) encoder = WordEncoder(form, "utf-8");
  if (encoder.isUtf8() && text.starts_with(kByteOrderMark)) text.remove_prefix(3);

  std::string out;
  while (!text.empty()) {
    std::size_t room = kHeaderWordLineLength;
    if (out.empty()) {
      const std::size_t left = column < kMaxHeaderColumns ? kMaxHeaderColumns - column : 0;
      if (left < encoder.shortestWord()) {
        out.append("\r\n ");  // after a very long field name
      } else {
        room = std::min(room, left);
      }
    } else {
      out.append("\r\n ");
    }
    const std::size_t bytes = encoder.measure(text, room);
    out.append(encoder.word(text.substr(0, bytes)));
    text.remove_prefix(bytes);
  }
  return out;
}

bool stays(std::string_view text, std::string_view charset, std::string_view mark) {
  return base::containsNoCase(text, mark) || base::equalsNoCase(charset, "us-ascii");
}

struct ReadWord {
  std::string_view charset;
  char form = 'Q';
  std::string_view text;
  std::size_t length = 0;  // of the whole word in the value; 0: there is no word
};

// The word at the start of `text`, which begins with "=?".
ReadWord readWord(std::string_view text) {
  ReadWord word;
  const std::size_t charsetEnd = text.substr(0, 2 + kMaxCharsetName).find('?', 2);
  if (charsetEnd == std::string_view::npos || charsetEnd + 2 >= text.size()) return word;
  word.charset = text.substr(2, charsetEnd - 2);
  word.charset = word.charset.substr(0, word.charset.find('*'));  // a language, RFC 2231 section 5
  word.form = static_cast<char>(text[charsetEnd + 1] & ~0x20);
  if ((word.form != 'Q' && word.form != 'B') || text[charsetEnd + 2] != '?') return word;
  const std::size_t start = charsetEnd + 3;
  // An encoded text holds no '?', so each is looked at once however many false starts there are.
  const std::size_t end = text.find('?', start);
  if (end == std::string_view::npos || end + 1 >= text.size() || text[end + 1] != '=') return word;
  word.text = text.substr(start, end - start);
  word.length = end + 2;
  return word;
}

bool isKnown(const ReadWord& word) {
  return word.length != 0 && Charset(word.charset).codePage() != kNoCodePage;
}

std::string decodeQ(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int high = text[i] == '=' && i + 2 < text.size() ? base::hexValue(text[i + 1]) : -1;
    const int low = high >= 0 ? base::hexValue(text[i + 2]) : -1;
    if (low >= 0) {
      out.push_back(static_cast<char>(high * 16 + low));
      i += 2;
    } else {
      out.push_back(text[i] == '_' ? ' ' : text[i]);
    }
  }
  return out;
}

std::string decodeBytes(const ReadWord& word) {
  if (word.form == 'Q') return decodeQ(word.text);
  std::string bytes;
  base64Decode(word.text, bytes);
  return bytes;
}

// Text without words, in the charset or, when that cannot be, in Windows-1252.
std::string plainAsUtf8(std::string_view bytes, const Charset& charset) {
  if (base::isValidUtf8(bytes)) return std::string(bytes);
  std::string utf8;
  bool lossy = false;
  const bool converted =
      charset.isAsciiBased() && EncodingConvert::toUtf8(charset, bytes, utf8, &lossy) && !lossy;
  if (!converted) EncodingConvert::toUtf8(Charset("windows-1252"), bytes, utf8);
  return utf8;
}

// The word in ASCII only, with the same meaning. Base64 has no bytes beyond ASCII.
void appendAsciiWord(std::string_view word, const ReadWord& read, std::string& out) {
  for (const char c : word) {
    if ((c & 0x80) == 0) {
      out.push_back(c);
    } else if (read.form == 'Q') {
      appendEscaped(c, out);
    }
  }
}

bool isWhiteSpace(std::string_view text) {
  return std::all_of(text.begin(), text.end(), base::isSpace);
}

}  // namespace

bool usesBWords(std::string_view charset) {
  return std::any_of(
      std::begin(kBCharsets), std::end(kBCharsets),
      [charset](std::string_view name) { return base::equalsNoCase(name, charset); });
}

std::string encodeQWords(std::string_view utf8, std::string_view charset, std::size_t column) {
  if (stays(utf8, charset, "?Q?")) return std::string(utf8);
  return encodeWords(Form::Q, utf8, charset, column);
}

std::string encodeBWords(std::string_view utf8, std::string_view charset, std::size_t column) {
  if (stays(utf8, charset, "?B?")) return std::string(utf8);
  return encodeWords(Form::B, utf8, charset, column);
}

std::string encodeHeaderWords(std::string_view utf8, std::string_view charset, std::size_t column) {
  return usesBWords(charset) ? encodeBWords(utf8, charset, column)
                             : encodeQWords(utf8, charset, column);
}

std::string encodeHeaderText(std::string_view utf8, std::string_view charset, std::size_t column) {
  if (!base::contains8bit(utf8)) return std::string(utf8);
  return encodeHeaderWords(utf8, charset, column);
}

bool holdsEncodedWord(std::string_view value) {
  for (std::size_t at = value.find("=?"); at != std::string_view::npos;
       at = value.find("=?", at + 2)) {
    if (isKnown(readWord(value.substr(at)))) return true;
  }
  return false;
}

std::string headerAsUtf8(std::string_view raw, const Charset& charset) {
  if (base::isValidUtf8(raw)) return std::string(raw);
  std::string out;
  std::size_t done = 0;  // up to here `raw` is in `out`
  for (std::size_t at = raw.find("=?"); at != std::string_view::npos; at = raw.find("=?", at)) {
    const ReadWord word = readWord(raw.substr(at));
    if (!isKnown(word)) {
      at += 2;
      continue;
    }
    out.append(plainAsUtf8(raw.substr(done, at - done), charset));
    appendAsciiWord(raw.substr(at, word.length), word, out);
    at += word.length;
    done = at;
  }
  return out.append(plainAsUtf8(raw.substr(done), charset));
}

std::string decodeHeaderText(std::string_view value) {
  std::string out;
  // Bytes of words that follow each other and have the same charset: other programs split
  // characters between words.
  std::string pending;
  Charset pendingCharset;
  const auto flush = [&] {
    if (pending.empty()) return;
    std::string utf8;
    EncodingConvert::toUtf8(pendingCharset, pending, utf8);
    out.append(utf8);
    pending.clear();
  };
  bool afterWord = false;
  while (!value.empty()) {
    const std::size_t start = value.find("=?");
    const ReadWord word =
        start == std::string_view::npos ? ReadWord() : readWord(value.substr(start));
    const Charset charset = word.length == 0 ? Charset() : Charset(word.charset);
    if (charset.codePage() == kNoCodePage) {
      flush();
      const std::size_t length = start == std::string_view::npos ? start : start + 2;
      out.append(value.substr(0, length));
      value.remove_prefix(std::min(length, value.size()));
      afterWord = false;
      continue;
    }
    const std::string_view between = value.substr(0, start);
    const bool adjacent = afterWord && isWhiteSpace(between);
    if (!adjacent || charset.codePage() != pendingCharset.codePage()) flush();
    if (!adjacent) out.append(between);
    pendingCharset = charset;
    pending.append(decodeBytes(word));
    afterWord = true;
    value.remove_prefix(start + word.length);
  }
  flush();
  return out;
}

}  // namespace kelvado
