#include "mail/mime/mime_message2.h"

#include <algorithm>
#include <vector>

#include "base/ascii.h"
#include "base/log_base.h"
#include "base/text.h"
#include "mail/mime/base64.h"
#include "mail/mime/charset.h"
#include "mail/mime/encoded_word.h"
#include "mail/mime/header_writer.h"
#include "mail/mime/mime_parameter.h"
#include "mail/mime/quoted_printable.h"
#include "mail/mime/uu.h"

namespace kelvado {
namespace {

std::string_view withoutLastLineEnd(std::string_view text) {
  if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  if (!text.empty() && text.back() == '\r') text.remove_suffix(1);
  return text;
}

// Without its folds. A CR or NUL that is none of them becomes a blank: to leave it out would make
// another address of one that it is in.
std::string unfolded(std::string_view raw) {
  std::string value(base::trimmed(raw));
  base::replaceAll(value, "\r\n", "");
  base::replaceAll(value, "\n", "");
  std::replace_if(
      value.begin(), value.end(), [](char c) { return c == '\r' || c == '\0'; }, ' ');
  return value;
}

std::string fieldValue(std::string_view name, std::string_view raw) {
  const std::string clean = unfolded(raw);
  // Parameters are decoded where they are read.
  if (base::equalsNoCase(name, "Content-Type") || base::equalsNoCase(name, "Content-Disposition")) {
    return repairedUtf8(clean);
  }
  if (!isAddressField(name)) return base::withoutLineBreaks(decodeHeaderText(repairedUtf8(clean)));
  // A decoded name may hold what separates addresses, so first comes the structure. Without one
  // address in it (a group without members, a null return path) the text stays.
  std::string list;
  for (const EmailAddress& entry : parseAddressField(repairedUtf8(clean))) {
    if (!list.empty()) list.append(",\r\n ");
    list.append(formatAddress(entry));
  }
  return list.empty() ? repairedUtf8(clean) : list;
}

enum class Delimiter { None, Next, Last };

// Whether the line is a delimiter of the boundary; blanks behind it don't count.
Delimiter delimiterIn(std::string_view line, std::string_view boundary) {
  if (!line.starts_with("--") || !line.substr(2).starts_with(boundary)) return Delimiter::None;
  std::string_view rest = line.substr(2 + boundary.size());
  const bool last = rest.starts_with("--");
  if (last) rest.remove_prefix(2);
  return !base::trimmed(rest).empty() ? Delimiter::None : last ? Delimiter::Last : Delimiter::Next;
}

}  // namespace

class MimeMessage2::Reader {
 public:
  explicit Reader(base::LogBase& log) : log_(log) {}

  std::unique_ptr<Email2> readPart(std::string_view text, std::size_t depth) {
    if (depth > kMaxPartDepth) return refuse("MIME text is nested too deeply");
    if (++parts_ > kMaxParts) return refuse("MIME text has too many parts");
    auto part = std::unique_ptr<Email2>(new Email2);
    if (!readHeader(text, *part)) return nullptr;
    describe(*part);
    if (part->contentType_.isMultipart() && !part->contentType_.boundary.empty()) {
      if (!readChildren(text, *part, depth)) return nullptr;
      if (!part->children_.empty()) return part;
    }
    readBody(text, *part);
    return part;
  }

 private:
  std::unique_ptr<Email2> refuse(std::string_view error) {
    log_.LogError(error);
    return nullptr;
  }

  // Takes the header and the empty line behind it off the text.
  bool readHeader(std::string_view& text, Email2& part) {
    const std::size_t before = text.size();
    while (!text.empty()) {
      const std::string_view rest = text;
      const std::string_view line = base::takeLine(text);
      if (line.empty()) return true;
      const std::size_t colon = line.find(':');
      const std::string_view name = base::trimmed(line.substr(0, colon));
      if (colon == std::string_view::npos || !isValidFieldName(name)) {
        if (base::isBlank(line.front()) || line.starts_with("From ") ||
            line.starts_with(">From ")) {
          continue;  // left over, or the first line of a mailbox file
        }
        text = rest;  // the body begins without an empty line before it
        return true;
      }
      const char* start = line.data() + colon + 1;
      while (!text.empty() && base::isBlank(text.front())) base::takeLine(text);
      const std::string_view raw(start, static_cast<std::size_t>(text.data() - start));
      if (before - text.size() > kMaxHeaderBytes ||
          part.header_.fields().size() >= kMaxHeaderFields) {
        log_.LogError("MIME header is too long");
        return false;
      }
      part.header_.add(name, fieldValue(name, raw));
    }
    return true;
  }

  // The values that are kept beside the header.
  static void describe(Email2& part) {
    part.contentType_ = parseContentType(part.header_.get("Content-Type"));
    part.transferEncoding_ =
        base::lowered(base::trimmed(part.header_.get("Content-Transfer-Encoding")));
    part.from_ = parseAddress(part.header_.get("From"));
    std::vector<MimeParameter> parameters;
    part.disposition_ =
        base::lowered(parseParameterised(part.header_.get("Content-Disposition"), parameters));
    part.filename_ = parameterNamed(parameters, "filename");
    // What the library wrote itself gets its folds back.
    const std::string formatted = part.contentType_.format();
    if (part.header_.get("Content-Type") == base::withoutLineBreaks(formatted)) {
      part.header_.set("Content-Type", formatted);
    }
  }

  // Where there is a delimiter, all of the text is taken: what stands around the children is none
  // of the content.
  bool readChildren(std::string_view& body, Email2& part, std::size_t depth) {
    std::string_view text = body;
    tolerateAlternativeFault(text, part);
    const std::string boundary = part.contentType_.boundary;
    std::string_view child;
    bool inside = false;
    while (!text.empty()) {
      const std::string_view rest = text;
      const Delimiter delimiter = delimiterIn(base::takeLine(text), boundary);
      if (delimiter == Delimiter::None) continue;
      body = {};
      if (inside) {
        child = child.substr(0, static_cast<std::size_t>(rest.data() - child.data()));
        if (!addChild(withoutLastLineEnd(child), part, depth)) return false;
      }
      child = text;
      inside = delimiter == Delimiter::Next;
      if (delimiter == Delimiter::Last) break;
    }
    // The last boundary is missing: the last part goes up to the end.
    return !inside || addChild(child, part, depth);
  }

  bool addChild(std::string_view text, Email2& part, std::size_t depth) {
    auto child = readPart(text, depth + 1);
    if (child == nullptr) return false;
    part.children_.push_back(std::move(child));
    return true;
  }

  // Some programs declare "=_alternative ..." and write it with one blank more.
  static void tolerateAlternativeFault(std::string_view text, Email2& part) {
    constexpr std::string_view kFault = "=_alternative";
    const std::string& declared = part.contentType_.boundary;
    if (declared.find(kFault) == std::string::npos || text.find(declared) != std::string::npos) {
      return;
    }
    std::string written = declared;
    base::replaceAll(written, kFault, std::string(kFault) + " ");
    if (text.find(written) == std::string_view::npos) return;
    part.contentType_.boundary = written;
    part.header_.set("Content-Type", part.contentType_.format());
  }

  static void readBody(std::string_view text, Email2& part) {
    std::string bytes = decoded(text, part);
    const bool isText = part.contentType_.isText();
    const bool wasEncoded =
        part.transferEncoding_ == "base64" || part.transferEncoding_ == "quoted-printable";
    // Lines, unless an encoding kept line ends of another kind.
    const std::string& name = part.contentType_.charset;
    const Charset charset(name.empty() ? "us-ascii" : name);
    part.keepLineEnds_ =
        wasEncoded && (!isText || !charset.isAsciiBased() || hasBareLineEnds(bytes));
    part.bodyIsUtf8_ = false;
    if (isText && charset.isAsciiBased()) {
      std::string utf8;
      // What does not convert there and back is kept as it came, so that it leaves as it came.
      if (EncodingConvert::toUtf8(charset, bytes, utf8) && convertsTo(bytes, charset, utf8)) {
        bytes = std::move(utf8);
        part.bodyIsUtf8_ = true;
      }
    }
    part.body_ = std::make_shared<const DataBuffer>(std::move(bytes));
  }

  static std::string decoded(std::string_view text, Email2& part) {
    const std::string& encoding = part.transferEncoding_;
    std::string bytes;
    if (encoding == "quoted-printable") return quotedPrintableDecode(text);
    if (encoding == "base64") {
      base64Decode(text, bytes);
      return bytes;
    }
    const bool uuencoded =
        encoding == "x-uuencode" || encoding == "uuencode" || encoding == "x-uue";
    std::string filename;
    if (uuencoded && Uu::decode(text, bytes, &filename)) {
      // It leaves as base64, which every reader knows.
      part.setTransferEncoding("base64");
      if (part.filename_.empty() && !filename.empty()) {
        const std::string disposition =
            part.disposition_.empty() ? "attachment" : part.disposition_;
        part.setDisposition(disposition, repairedUtf8(filename));
      }
      return bytes;
    }
    return std::string(text);
  }

  static bool convertsTo(std::string_view bytes, const Charset& charset, std::string_view utf8) {
    std::string back;
    return utf8 == bytes || (EncodingConvert::fromUtf8(charset, utf8, back) && back == bytes);
  }

  static bool hasBareLineEnds(std::string_view text) {
    for (std::size_t at = text.find_first_of("\r\n"); at != std::string_view::npos;
         at = text.find_first_of("\r\n", at)) {
      if (text.substr(at, 2) != "\r\n") return true;
      at += 2;
    }
    return false;
  }

  base::LogBase& log_;
  std::size_t parts_ = 0;
};

std::unique_ptr<Email2> MimeMessage2::parse(std::string_view text, base::LogBase& log) {
  return Reader(log).readPart(text, 1);
}

void MimeMessage2::write(const Email2& message, std::string& out) {
  out.reserve(out.size() + message.sizeEstimate());
  writePart(message, message.contentType_.charset, out);
}

// True when what was written ends in a line end that is not the content's own.
bool MimeMessage2::writePart(const Email2& part, std::string_view messageCharset,
                             std::string& out) {
  for (const MimeField& field : part.header_.fields()) {
    if (isPrivateFieldName(field.name) || base::equalsNoCase(field.name, "Bcc")) continue;
    appendHeaderField(field, messageCharset, out);
  }
  out.append("\r\n");
  if (part.children_.empty()) return writeBody(part, out);

  const std::string& boundary = part.contentType_.boundary;
  for (const auto& child : part.children_) {
    out.append("--").append(boundary).append("\r\n");
    if (!writePart(*child, messageCharset, out)) out.append("\r\n");
  }
  out.append("--").append(boundary).append("--\r\n");
  return true;
}

bool MimeMessage2::writeBody(const Email2& part, std::string& out) {
  std::string scratch;
  const std::string_view body = part.wireBody(scratch);
  if (part.transferEncoding_ == "quoted-printable") {
    quotedPrintableAppend(body, part.keepLineEnds_ ? LineEnds::Exact : LineEnds::AsLines, out);
    return false;
  }
  if (part.transferEncoding_ != "base64") {
    base::appendWithCrLf(body, out);
    return false;
  }
  if (part.keepLineEnds_) {
    base64AppendLines(body, kBodyLineLength, out);
  } else {
    std::string lines;
    base::appendWithCrLf(body, lines);
    base64AppendLines(lines, kBodyLineLength, out);
  }
  return true;
}

}  // namespace kelvado
