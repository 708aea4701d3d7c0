#include "mail/mime/mime_parameter.h"

#include <algorithm>
#include <charconv>
#include <map>

#include "base/ascii.h"
#include "base/hex_digit.h"
#include "base/text.h"
#include "base/unicode.h"
#include "mail/mime/charset.h"
#include "mail/mime/encoded_word.h"

namespace kelvado {
namespace {

// Of an encoded piece: a line of 76 less the tab, the name, its marks and "utf-8''".
constexpr std::size_t kPieceLength = 50;

// A quoted value may be this long on one line; a longer one is written in pieces.
constexpr std::size_t kMaxQuotedLength = 500;

// A value as it stands, or percent-encoded.
struct Piece {
  std::string value;
  bool encoded = false;
};
using Pieces = std::map<unsigned, Piece>;

// The forms of one parameter. Programs write a plain one beside an encoded one for readers that do
// not know RFC 2231.
struct Forms {
  Pieces plain;      // name=; piece 0 only
  Pieces extended;   // name*=; piece 0 only
  Pieces continued;  // name*0=, name*1*=: to be joined

  const Pieces& best() const {
    if (!extended.empty()) return extended;
    const bool complete = continued.contains(0);
    return complete || plain.empty() ? continued : plain;
  }
};

std::string percentDecoded(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int high = text[i] == '%' && i + 2 < text.size() ? base::hexValue(text[i + 1]) : -1;
    const int low = high >= 0 ? base::hexValue(text[i + 2]) : -1;
    if (low >= 0) i += 2;
    out.push_back(low >= 0 ? static_cast<char>(high * 16 + low) : text[i]);
  }
  return out;
}

std::string joined(const Pieces& pieces) {
  std::string bytes;
  bool anyEncoded = false;
  Charset charset;
  bool first = true;
  for (const auto& [number, piece] : pieces) {
    std::string_view value = piece.value;
    if (first && piece.encoded) {  // charset'language'text
      const std::size_t charsetEnd = value.find('\'');
      const std::size_t languageEnd =
          charsetEnd == std::string_view::npos ? charsetEnd : value.find('\'', charsetEnd + 1);
      if (languageEnd != std::string_view::npos) {
        charset = Charset(value.substr(0, charsetEnd));
        value.remove_prefix(languageEnd + 1);
      }
    }
    first = false;
    anyEncoded = anyEncoded || piece.encoded;
    bytes.append(piece.encoded ? percentDecoded(value) : std::string(value));
  }
  std::string utf8;
  if (charset.codePage() != kNoCodePage && EncodingConvert::toUtf8(charset, bytes, utf8)) {
    return utf8;
  }
  // Many programs write encoded words into a value that is not encoded otherwise.
  return anyEncoded ? repairedUtf8(bytes) : decodeHeaderText(repairedUtf8(bytes));
}

class ParameterScanner {
 public:
  explicit ParameterScanner(std::string_view text) : text_(text) {}

  bool atEnd() const { return at_ >= text_.size(); }

  // Up to one of `ends` or the end of the text, outside quotes and comments; blanks around it are
  // left out.
  std::string take(std::string_view ends) {
    std::string out;
    std::size_t end = 0;  // of what is not blank or is in quotes
    while (!atEnd() && ends.find(text_[at_]) == std::string_view::npos) {
      if (text_[at_] == '"') {
        takeQuoted(out);
        end = out.size();
      } else if (text_[at_] == '(') {
        skipComment();
      } else {
        const char c = text_[at_++];
        if (!base::isSpace(c) || !out.empty()) out.push_back(c);
        if (!base::isSpace(c)) end = out.size();
      }
    }
    out.resize(end);
    return out;
  }

  bool takes(char c) {
    if (atEnd() || text_[at_] != c) return false;
    ++at_;
    return true;
  }

 private:
  void takeQuoted(std::string& out) {
    for (++at_; !atEnd() && text_[at_] != '"'; ++at_) {
      if (text_[at_] == '\\' && at_ + 1 < text_.size()) ++at_;
      out.push_back(text_[at_]);
    }
    ++at_;
  }

  void skipComment() {
    std::size_t depth = 1;
    for (++at_; !atEnd(); ++at_) {
      if (text_[at_] == ')' && --depth == 0) break;
      if (text_[at_] == '(') ++depth;
      if (text_[at_] == '\\') ++at_;
    }
    ++at_;
  }

  std::string_view text_;
  std::size_t at_ = 0;
};

// The pieces that "filename*1*" belongs to, its number there and whether it is encoded.
struct PieceName {
  std::string name;
  Pieces Forms::*form = &Forms::plain;
  unsigned number = 0;
  bool encoded = false;
};

PieceName readPieceName(std::string_view name) {
  PieceName result;
  if (name.ends_with('*')) {
    result.form = &Forms::extended;
    result.encoded = true;
    name.remove_suffix(1);
  }
  const std::size_t star = name.find('*');
  if (star != std::string_view::npos) {
    result.form = &Forms::continued;
    const char* const end = name.data() + name.size();
    const auto [last, error] = std::from_chars(name.data() + star + 1, end, result.number);
    if (error != std::errc() || last != end) return {};
    name = name.substr(0, star);
  }
  result.name = base::lowered(name);
  return result;
}

bool isAttributeCharacter(char c) {  // RFC 5987 section 3.2.1
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
         std::string_view("!#$&+-.^_`|~").find(c) != std::string_view::npos;
}

std::string percentEncoded(std::string_view text) {
  std::string out;
  for (const char c : text) {
    if (isAttributeCharacter(c)) {
      out.push_back(c);
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    out.push_back('%');
    out.push_back(base::kHexDigits[byte >> 4]);
    out.push_back(base::kHexDigits[byte & 0x0F]);
  }
  return out;
}

// Moves as many whole characters as fit in a piece: some readers decode each piece by itself.
void appendPiece(std::string_view& value, std::string& out) {
  std::size_t room = kPieceLength;
  while (!value.empty()) {
    const std::size_t length = base::utf8CharacterLength(value);
    const std::string character = percentEncoded(value.substr(0, length));
    if (character.size() > room) break;
    out.append(character);
    room -= character.size();
    value.remove_prefix(length);
  }
}

void appendEncoded(std::string_view name, std::string_view value, std::string& out) {
  const std::string encoded = percentEncoded(value);
  if (encoded.size() <= kPieceLength) {
    out.append(name).append("*=utf-8''").append(encoded);
    return;
  }
  for (std::size_t number = 0; !value.empty(); ++number) {
    if (number > 0) out.append(";\r\n\t");
    out.append(name).append("*").append(std::to_string(number)).append("*=");
    if (number == 0) out.append("utf-8''");
    appendPiece(value, out);
  }
}

}  // namespace

bool isTokenCharacter(char c) {
  return c > 0x20 && c < 0x7F && std::string_view("()<>@,;:\\\"[]?=").find(c) == std::string::npos;
}

std::string parseParameterised(std::string_view value, std::vector<MimeParameter>& parameters) {
  parameters.clear();
  ParameterScanner scanner(value);
  std::string main = scanner.take(";");
  // In the order of their names in the value.
  std::vector<std::pair<std::string, Forms>> found;
  for (std::size_t count = 0; count < kMaxParameters && scanner.takes(';'); ++count) {
    const PieceName name = readPieceName(scanner.take("=;"));
    if (!scanner.takes('=')) continue;
    const std::string text = scanner.take(";");
    if (name.name.empty()) continue;
    auto entry = std::find_if(found.begin(), found.end(),
                              [&name](const auto& pair) { return pair.first == name.name; });
    if (entry == found.end()) entry = found.insert(entry, {name.name, Forms()});
    // Of two the first counts, but an encoded piece is better than a plain one of its number.
    Piece& piece = (entry->second.*name.form)[name.number];
    if (piece.value.empty() || (name.encoded && !piece.encoded)) piece = {text, name.encoded};
  }
  for (const auto& [name, forms] : found) {
    parameters.push_back({name, base::withoutLineBreaks(joined(forms.best()))});
  }
  return main;
}

std::string parameterNamed(const std::vector<MimeParameter>& parameters, std::string_view name) {
  for (const MimeParameter& parameter : parameters) {
    if (base::equalsNoCase(parameter.name, name)) return parameter.value;
  }
  return {};
}

void appendParameter(std::string_view name, std::string_view value, std::string& out) {
  const std::string clean = base::withoutLineBreaks(value);
  const bool readsAsWords = decodeHeaderText(clean) != clean;
  if (base::contains8bit(clean) || readsAsWords || clean.size() > kMaxQuotedLength) {
    appendEncoded(name, clean, out);
    return;
  }
  out.append(name).append("=\"");
  for (const char c : clean) {
    if (c == '"' || c == '\\') out.push_back('\\');
    out.push_back(c);
  }
  out.push_back('"');
}

std::string formatParameterised(std::string_view value) {
  std::vector<MimeParameter> parameters;
  std::string out = parseParameterised(value, parameters);
  std::erase_if(out, [](char c) { return c != '/' && !isTokenCharacter(c); });
  for (const MimeParameter& parameter : parameters) {
    if (!std::all_of(parameter.name.begin(), parameter.name.end(), isTokenCharacter)) continue;
    out.append(";\r\n\t");
    appendParameter(parameter.name, parameter.value, out);
  }
  return out;
}

}  // namespace kelvado
