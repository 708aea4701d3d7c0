#include "mail/mime/header_writer.h"

#include <algorithm>

#include "base/ascii.h"
#include "mail/mime/email_address.h"
#include "mail/mime/encoded_word.h"
#include "mail/mime/mime_parameter.h"

namespace kelvado {
namespace {

// The charset of subjects and names on the wire, whatever the body's is.
constexpr std::string_view kWordCharset = "utf-8";

// Free text, in which a word too long for a line may become encoded words. In other fields that
// would change the meaning, and such a word stays whole up to the limit of a line.
bool isFreeText(std::string_view name) {
  for (const std::string_view free :
       {"Subject", "Comments", "Content-Description", "Organization", "Thread-Topic", "Keywords"}) {
    if (base::equalsNoCase(name, free)) return true;
  }
  return base::beginsWithNoCase(name, "X-");
}

bool hasParameters(std::string_view name) {
  return base::equalsNoCase(name, "Content-Type") ||
         base::equalsNoCase(name, "Content-Disposition");
}

// How a value may be folded.
struct Folding {
  // The longest stretch without a place to fold: at the start of the value, and further on.
  std::size_t first;
  std::size_t other;
  // Blanks in quotes are no such place: some readers would keep the fold as a part of the text.
  bool quotes;
};

// Where the word at `start` ends: at the next blank or the end of the line.
std::size_t wordEnd(std::string_view line, std::size_t start, bool quotes) {
  bool quoted = false;
  std::size_t at = start;
  for (; at < line.size() && (quoted || !base::isBlank(line[at])); ++at) {
    if (quotes && line[at] == '"') quoted = !quoted;
    if (quoted && line[at] == '\\' && at + 1 < line.size()) ++at;
  }
  return at;
}

// Appends one line, which has no line break, folded at blanks so that it keeps to 76 columns where
// it can. False when a stretch is too long.
bool appendFoldedLine(std::string_view line, std::size_t column, bool isFirst,
                      const Folding& folding, std::string& out) {
  bool first = isFirst;
  while (!line.empty()) {
    // A stretch: the blanks, at which a line may be folded, and the word behind them.
    const std::size_t word = std::min(line.find_first_not_of(" \t"), line.size());
    const std::size_t length = wordEnd(line, word, folding.quotes);
    if (length > (first ? folding.first : folding.other)) return false;
    // The first word stays behind the field's name, and no line is made of blanks only.
    if (column + length > kMaxHeaderColumns && word > 0 && column > 0 && !first) {
      out.append("\r\n");
      column = 0;
    }
    out.append(line.substr(0, length));
    column += length;
    line.remove_prefix(length);
    first = false;
  }
  return true;
}

// The same for a value that may hold folds already; those stay. On false, a part of the value was
// appended.
bool appendFolded(std::string_view text, std::size_t column, const Folding& folding,
                  std::string& out) {
  for (bool first = true;; first = false, column = 0) {
    const std::size_t end = text.find("\r\n");
    if (!appendFoldedLine(text.substr(0, end), column, first, folding, out)) return false;
    if (end == std::string_view::npos) return true;
    out.append("\r\n");
    text.remove_prefix(end + 2);
  }
}

// For what cannot be folded at blanks: a fold wherever the line is full.
void appendBroken(std::string_view text, std::size_t column, std::string& out) {
  constexpr std::size_t kMaxCharacter = 4;  // in UTF-8
  for (const char c : text) {
    const bool insideCharacter = (c & 0xC0) == 0x80;
    const std::size_t limit = insideCharacter ? kMaxLineOctets : kMaxLineOctets - kMaxCharacter + 1;
    if (column >= limit && c != '\r' && c != '\n') {
      out.append("\r\n ");
      column = 1;
    }
    out.push_back(c);
    column = c == '\n' ? 0 : column + 1;
  }
}

// What is to be in encoded words: what has bytes that are not ASCII, or all that can be.
enum class Words { WhereNeeded, Everywhere };

// The entry with its name in words. One whose address is not ASCII, which no
// header may hold, is in words altogether.
std::string encodedAddress(const EmailAddress& entry, Words where, std::size_t column) {
  std::string plain = formatAddress(entry);
  if (base::contains8bit(entry.address)) return encodeHeaderWords(plain, kWordCharset, column);
  const bool mayStay = entry.name.empty() || entry.address.empty();
  if (mayStay || (where == Words::WhereNeeded && !base::contains8bit(entry.name))) return plain;
  std::string out = encodeHeaderWords(entry.name, kWordCharset, column);
  if (out == entry.name) return plain;  // it was taken as encoded, and needs its quotes
  const std::size_t lineStart = out.rfind('\n');
  const std::size_t used =
      lineStart == std::string::npos ? column + out.size() : out.size() - lineStart - 1;
  const bool fits = used + entry.address.size() + 3 <= kMaxHeaderColumns;
  return out.append(fits ? " <" : "\r\n <").append(entry.address).append(">");
}

// One address a line.
std::string encodedAddressList(std::string_view value, Words where, std::size_t column) {
  std::string out;
  for (const EmailAddress& entry : parseAddressField(value)) {
    if (!out.empty()) {
      out.append(",\r\n ");
      column = 1;
    }
    out.append(encodedAddress(entry, where, column));
  }
  return out;
}

std::string encodedValue(const MimeField& field, Words where, std::size_t column) {
  // Words would hide the structure of these.
  if (hasParameters(field.name)) return formatParameterised(field.value);
  if (isAddressField(field.name)) {
    std::string list = encodedAddressList(field.value, where, column);
    if (!list.empty()) return list;
  }
  // Words of the other form in it are decoded first, or they would be encoded a second time.
  const bool stays = base::containsNoCase(field.value, "?Q?");
  return encodeHeaderWords(stays ? field.value : decodeHeaderText(field.value), kWordCharset,
                           column);
}

}  // namespace

bool isAddressField(std::string_view name) {
  for (const std::string_view address :
       {"From", "To", "Cc", "Bcc", "Reply-To", "Sender", "Return-Path", "Resent-From", "Resent-To",
        "Resent-Cc", "Resent-Bcc", "Resent-Sender", "Disposition-Notification-To"}) {
    if (base::equalsNoCase(name, address)) return true;
  }
  return false;
}

void appendHeaderField(const MimeField& field, std::string_view messageCharset, std::string& out) {
  out.append(field.name).append(": ");
  const std::size_t column = field.name.size() + 2;
  const bool fits = column + field.value.size() <= kMaxHeaderColumns;
  if (fits && !base::contains8bit(field.value) &&
      base::lineLength(field.value) == field.value.size()) {
    out.append(field.value).append("\r\n");  // most are: nothing to fold or to encode
    return;
  }
  const std::size_t start = out.size();
  const bool addresses = isAddressField(field.name);
  const bool staysRaw =
      addresses && !field.wasRead && base::equalsNoCase(messageCharset, "us-ascii");
  const bool encode = base::contains8bit(field.value) && !staysRaw;
  const bool quotes = addresses || hasParameters(field.name);
  const Folding hard{kMaxLineOctets - std::min(column, kMaxLineOctets), kMaxLineOctets, quotes};
  const Folding soft{kMaxHeaderColumns - std::min(column, kMaxHeaderColumns), kMaxHeaderColumns,
                     quotes};
  // A long word of free text is encoded, unless it is an encoded one.
  const bool mayEncode = isFreeText(field.name) && (encode || !holdsEncodedWord(field.value));
  const std::string words =
      encode ? encodedValue(field, Words::WhereNeeded, column) : std::string();
  const std::string_view text = encode ? words : field.value;
  if (!appendFolded(text, column, mayEncode ? soft : hard, out)) {
    // Once more, in words. What cannot be encoded, or is so already, is broken.
    out.resize(start);
    const std::string again = encodedValue(field, Words::Everywhere, column);
    if (!appendFolded(again, column, hard, out)) {
      out.resize(start);
      appendBroken(again, column, out);
    }
  }
  out.append("\r\n");
}

}  // namespace kelvado
