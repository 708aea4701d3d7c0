#include "mail/mime/mime_message2.h"

#include <algorithm>
#include <vector>

#include "base/ascii.h"
#include "base/log_base.h"
#include "base/log_null.h"
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

// A value as UTF-8 without its folds. A CR or NUL that is no part of a fold becomes a blank:
// without it, an address would become another one.
std::string unfolded(std::string_view raw, const Charset& charset) {
  std::string value(raw);
  base::replaceAll(value, "\r\n", "");
  base::replaceAll(value, "\n", "");
  value = headerAsUtf8(value, charset);
  std::replace_if(
      value.begin(), value.end(), [](char c) { return c == '\r' || c == '\n' || c == '\0'; }, ' ');
  return std::string(base::trimmed(value));
}

std::string fieldValue(std::string_view name, std::string_view raw, const Charset& charset) {
  std::string clean = unfolded(raw, charset);
  // Parameters are decoded where they are read.
  if (base::equalsNoCase(name, "Content-Type") || base::equalsNoCase(name, "Content-Disposition")) {
    return clean;
  }
  if (!isAddressField(name)) return base::withoutLineBreaks(decodeHeaderText(clean));
  // A decoded name may hold what separates addresses, so the addresses are split first. A text
  // without one (a group without members, a null return path) stays.
  std::string list;
  for (const EmailAddress& entry : parseAddressField(clean)) {
    if (!list.empty()) list.append(",\r\n ");
    list.append(formatAddress(entry));
  }
  return list.empty() ? clean : list;
}

enum class Delimiter { None, Next, Last };

// Whether the line is a delimiter of the boundary. Blanks behind it are allowed.
Delimiter delimiterIn(std::string_view line, std::string_view boundary) {
  if (!line.starts_with("--") || !line.substr(2).starts_with(boundary)) return Delimiter::None;
  std::string_view rest = line.substr(2 + boundary.size());
  const bool last = rest.starts_with("--");
  if (last) rest.remove_prefix(2);
  return !base::trimmed(rest).empty() ? Delimiter::None : last ? Delimiter::Last : Delimiter::Next;
}

// How much of a body is encoded at a time, in bytes.
constexpr std::size_t kBlockBytes = std::size_t{32} * 1024;
// The same for base64: whole lines of it.
constexpr std::size_t kBase64Block = std::size_t{kBodyLineLength} / 4 * 3 * 512;

template <class Append>
void inBlocks(std::string_view text, std::size_t blockBytes, MimeSink& sink, const Append& append) {
  while (!text.empty()) {
    append(text.substr(0, blockBytes));
    text.remove_prefix(std::min(text.size(), blockBytes));
    if (!sink.drain()) return;
  }
}

// The same in blocks of whole lines. A text without any is a single block.
template <class Append>
void inLines(std::string_view text, MimeSink& sink, const Append& append) {
  while (!text.empty()) {
    const std::size_t end =
        text.size() <= kBlockBytes ? std::string_view::npos : text.find('\n', kBlockBytes);
    const std::string_view block = text.substr(0, end == std::string_view::npos ? end : end + 1);
    append(block);
    text.remove_prefix(block.size());
    if (!sink.drain()) return;
  }
}

}  // namespace

class MimeMessage2::Reader {
 public:
  // `inSigned`: the text is inside a signed part, which keeps its original as a whole.
  Reader(base::LogBase& log, bool inSigned) : log_(log), inSigned_(inSigned) {}

  std::unique_ptr<Email2> readPart(std::string_view text, std::string_view defaultType,
                                   std::size_t depth) {
    if (depth > kMaxPartDepth) return refuse("MIME text is nested too deeply");
    if (++parts_ > kMaxParts) return refuse("MIME text has too many parts");
    MimeHeader header;
    if (!readHeader(text, header)) return nullptr;
    auto part = Email2::createRead(std::move(header), defaultType, log_);
    if (part == nullptr) return nullptr;
    if (part->contentType().isMultipart()) {
      if (!part->contentType().boundary.empty() && !readChildren(text, *part, depth)) {
        return nullptr;
      }
      if (!part->children().empty()) return part;
      part->becomePlainText();
    }
    part->setBodyAsRead(decoded(text, *part));
    return part;
  }

 private:
  struct RawField {
    std::string_view name;
    std::string_view value;
  };

  std::unique_ptr<Email2> refuse(std::string_view error) {
    log_.LogError(error);
    return nullptr;
  }

  // Takes the header and the empty line behind it off the text.
  bool readHeader(std::string_view& text, MimeHeader& header) {
    std::vector<RawField> fields;
    if (!splitHeader(text, fields)) {
      log_.LogError("MIME header is too long");
      return false;
    }
    Charset charset;
    for (const RawField& field : fields) {
      if (!base::equalsNoCase(field.name, "Content-Type")) continue;
      charset = Charset(parseContentType(unfolded(field.value, charset)).charset);
      break;
    }
    for (const RawField& field : fields) {
      // They are instructions to the library, which a text that is read must not give.
      if (isPrivateFieldName(field.name)) continue;
      header.add({std::string(field.name), fieldValue(field.name, field.value, charset), true});
    }
    return true;
  }

  // False when the header is beyond a limit.
  static bool splitHeader(std::string_view& text, std::vector<RawField>& fields) {
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
          continue;  // a continuation of nothing, or the first line of a mailbox file
        }
        text = rest;  // the body begins without an empty line before it
        return true;
      }
      const char* start = line.data() + colon + 1;
      while (!text.empty() && base::isBlank(text.front())) base::takeLine(text);
      if (before - text.size() > kMaxHeaderBytes || fields.size() >= kMaxHeaderFields) return false;
      fields.push_back({name, {start, static_cast<std::size_t>(text.data() - start)}});
    }
    return true;
  }

  // Where there is a delimiter, all of the text is used up: what stands before the first child and
  // behind the last one is not kept.
  bool readChildren(std::string_view& body, Email2& part, std::size_t depth) {
    std::string_view text = body;
    tolerateAlternativeFault(text, part);
    const std::string boundary = part.contentType().boundary;
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
    const bool isSigned = base::equalsNoCase(part.contentType().type, "multipart/signed");
    const bool isDigest = base::equalsNoCase(part.contentType().type, "multipart/digest");
    const bool keepsOriginal = isSigned && !inSigned_;
    if (keepsOriginal) inSigned_ = true;
    auto child = readPart(text, isDigest ? "message/rfc822" : "", depth + 1);
    if (keepsOriginal) inSigned_ = false;
    if (child == nullptr) return false;
    if (keepsOriginal) child->keepOriginal(text);
    part.appendChild(std::move(child));
    return true;
  }

  // Some programs declare "=_alternative ..." and write it with one blank more.
  static void tolerateAlternativeFault(std::string_view text, Email2& part) {
    constexpr std::string_view kFault = "=_alternative";
    const std::string& declared = part.contentType().boundary;
    if (declared.find(kFault) == std::string::npos || text.find(declared) != std::string::npos) {
      return;
    }
    std::string written = declared;
    base::replaceAll(written, kFault, std::string(kFault) + " ");
    if (text.find(written) != std::string_view::npos) part.setBoundary(written);
  }

  static std::string decoded(std::string_view text, Email2& part) {
    const std::string& encoding = part.transferEncoding();
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
      // It is written as base64, which every reader knows.
      part.setTransferEncoding("base64");
      if (part.filename().empty() && !filename.empty()) {
        const std::string& disposition = part.disposition();
        part.setDisposition(disposition.empty() ? "attachment" : disposition,
                            repairedUtf8(filename));
      }
      return bytes;
    }
    return std::string(text);
  }

  base::LogBase& log_;
  bool inSigned_;
  std::size_t parts_ = 0;
};

std::unique_ptr<Email2> MimeMessage2::parse(std::string_view text, base::LogBase& log) {
  return Reader(log, false).readPart(text, "", 1);
}

bool MimeMessage2::isUnchanged(const Email2& part) {
  base::LogNull log;
  const auto asRead = Reader(log, true).readPart(*part.original(), "", 1);
  if (asRead == nullptr) return false;
  std::string before;
  std::string now;
  MimeSink beforeSink(before);
  MimeSink nowSink(now);
  writeContent(*asRead, "", beforeSink);
  writeContent(part, "", nowSink);
  return before == now;
}

void MimeMessage2::write(const Email2& message, MimeSink& sink) {
  sink.expect(message.sizeEstimate());
  writePart(message, message.contentType().charset, sink);
}

// True when what was written ends in a line end that is not the content's own.
bool MimeMessage2::writePart(const Email2& part, std::string_view messageCharset, MimeSink& sink) {
  if (part.original() == nullptr || !isUnchanged(part)) {
    return writeContent(part, messageCharset, sink);
  }
  inBlocks(*part.original(), kBlockBytes, sink,
           [&sink](std::string_view block) { sink.text().append(block); });
  return false;
}

bool MimeMessage2::writeContent(const Email2& part, std::string_view messageCharset,
                                MimeSink& sink) {
  std::string& out = sink.text();
  for (const MimeField& field : part.header().fields()) {
    if (isPrivateFieldName(field.name) || base::equalsNoCase(field.name, "Bcc")) continue;
    appendHeaderField(field, messageCharset, out);
  }
  out.append("\r\n");
  if (part.children().empty()) return writeBody(part, sink);

  const std::string& boundary = part.contentType().boundary;
  for (const auto& child : part.children()) {
    out.append("--").append(boundary).append("\r\n");
    if (!writePart(*child, messageCharset, sink)) out.append("\r\n");
  }
  out.append("--").append(boundary).append("--\r\n");
  return true;
}

bool MimeMessage2::writeBody(const Email2& part, MimeSink& sink) {
  std::string& out = sink.text();
  std::string scratch;
  std::string_view body = part.wireBody(scratch);
  if (part.transferEncoding() == "quoted-printable") {
    quotedPrintableAppend(body, part.hasLines() ? LineEnds::AsLines : LineEnds::Exact, out,
                          [&sink] { return sink.drain(); });
    return false;
  }
  if (part.transferEncoding() != "base64") {
    inLines(body, sink, [&out](std::string_view lines) { base::appendWithCrLf(lines, out); });
    return false;
  }
  if (part.hasLines()) {
    std::string lines;
    base::appendWithCrLf(body, lines);
    scratch.swap(lines);
    body = scratch;
  }
  if (body.empty()) base64AppendLines(body, kBodyLineLength, out);
  inBlocks(body, kBase64Block, sink,
           [&out](std::string_view block) { base64AppendLines(block, kBodyLineLength, out); });
  return true;
}

}  // namespace kelvado
