// The body of a message or part: its charset and transfer encoding, as they are set, read and
// written.
#include <algorithm>

#include "base/ascii.h"
#include "base/text.h"
#include "base/unicode.h"
#include "mail/mime/charset.h"
#include "mail/mime/email2.h"
#include "mail/mime/header_writer.h"
#include "mail/mime/identifiers.h"
#include "mail/mime/mime_message2.h"
#include "mail/mime/mime_sink.h"

namespace kelvado {
namespace {

// Whether the text cannot be sent without an encoding: it has a NUL or a line that is too long.
bool needsEncoding(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) return true;
  for (;;) {
    const std::size_t length = base::lineLength(text);
    if (length > kMaxLineOctets) return true;
    if (length == text.size()) return false;
    text.remove_prefix(length + 1);
  }
}

// Whether a CR or LF stands alone.
bool hasBareLineEnds(std::string_view text) {
  for (std::size_t at = text.find_first_of("\r\n"); at != std::string_view::npos;
       at = text.find_first_of("\r\n", at)) {
    if (text.substr(at, 2) != "\r\n") return true;
    at += 2;
  }
  return false;
}

bool hasBareCr(std::string_view text) {
  for (std::size_t at = text.find('\r'); at != std::string_view::npos; at = text.find('\r', at)) {
    if (text.substr(at, 2) != "\r\n") return true;
    at += 2;
  }
  return false;
}

bool convertsTo(std::string_view bytes, const Charset& charset, std::string_view utf8) {
  std::string back;
  return utf8 == bytes || (EncodingConvert::fromUtf8(charset, utf8, back) && back == bytes);
}

bool isEncoded(std::string_view transferEncoding) {
  return transferEncoding == "quoted-printable" || transferEncoding == "base64";
}

}  // namespace

void Email2::adoptCharsetFor(std::string_view text) {
  if (contentType_.charset.empty() && base::contains8bit(text)) {
    setCharset(Charset::forText(text).name());
  }
}

// Text that its charset cannot carry would be lost or changed. Without line ends of ASCII, as in
// UTF-16, it could not be sent as lines.
void Email2::keepCharsetTrue() {
  const Charset charset(contentType_.charset);
  if (!bodyIsUtf8_ || charset.isUtf8() || body().empty()) return;
  const bool mayBeAscii = contentType_.charset.empty() || charset.isUsAscii();
  if (mayBeAscii && !base::contains8bit(body())) return;
  const bool carries = charset.isAsciiBased() && EncodingConvert::carries(charset, body());
  if (!carries) setCharset("utf-8");
}

void Email2::setTextBody(std::string text) {
  body_ = std::make_shared<const DataBuffer>(std::move(text));
  bodyIsUtf8_ = true;
  exactLineEnds_ = false;
  keepCharsetTrue();
}

void Email2::setBody(std::string bytes) {
  body_ = std::make_shared<const DataBuffer>(std::move(bytes));
  bodyIsUtf8_ = false;
  exactLineEnds_ = true;
}

std::string_view Email2::body() const {
  return body_ == nullptr ? std::string_view() : body_->view();
}

std::string Email2::textBody() const {
  std::string text;
  bool lossy = false;
  const bool converted =
      !bodyIsUtf8_ && EncodingConvert::toUtf8(Charset(contentType_.charset), body(), text, &lossy);
  // Text with a wrong label is often UTF-8.
  const bool wrongLabel = lossy && base::isValidUtf8(body());
  return converted && !wrongLabel ? text : repairedUtf8(body());
}

void Email2::setBoundary(std::string_view boundary) {
  contentType_.boundary = boundary;
  setContentType(ContentType(contentType_));
}

void Email2::becomePlainText() {
  ContentType text = ContentType::ofType("text/plain");
  text.charset = contentType_.charset;
  setContentType(text);
}

void Email2::setBodyAsRead(std::string bytes) {
  const bool isText = contentType_.isText();
  const bool isFile = isAttachment() || !filename_.empty() || !contentType_.name.empty();
  exactLineEnds_ = isEncoded(transferEncoding_) && (!isText || (isFile && hasBareLineEnds(bytes)));
  bodyIsUtf8_ = false;
  const std::string& name = contentType_.charset;
  const Charset charset(name.empty() ? "us-ascii" : name);
  if (isText && charset.isAsciiBased()) {
    std::string utf8;
    // What does not convert there and back is kept, and written, as it was read.
    if (EncodingConvert::toUtf8(charset, bytes, utf8) && convertsTo(bytes, charset, utf8)) {
      bytes = std::move(utf8);
      bodyIsUtf8_ = true;
    }
  }
  body_ = std::make_shared<const DataBuffer>(std::move(bytes));
}

void Email2::keepOriginal(std::string_view text) {
  if (needsEncoding(text) || hasBareCr(text)) return;
  std::string lines;
  lines.reserve(text.size());
  base::appendWithCrLf(text, lines);
  original_ = std::make_shared<const std::string>(std::move(lines));
}

bool Email2::hasLines() const {
  if (exactLineEnds_) return false;
  return bodyIsUtf8_ || !contentType_.isText() || Charset(contentType_.charset).isAsciiBased();
}

std::string_view Email2::wireBody(std::string& scratch) const {
  const Charset charset(contentType_.charset);
  const bool asItIs = !bodyIsUtf8_ || !contentType_.isText() || charset.isUtf8() ||
                      charset.codePage() == kNoCodePage ||
                      (charset.isUsAscii() && !base::contains8bit(body()));
  if (asItIs || !EncodingConvert::fromUtf8(charset, body(), scratch)) return body();
  return scratch;
}

void Email2::normaliseTransferEncodings() {
  if (original_ != nullptr) {
    if (MimeMessage2::isUnchanged(*this)) return;
    original_.reset();
  }
  if (children_.empty()) normaliseOwnEncoding();
  for (const auto& child : children_) child->normaliseTransferEncodings();
  // A boundary that another program chose, or that a writer of a body knows, must not be in a body.
  if (contentType_.isMultipart() && hasInBody("--" + contentType_.boundary)) {
    setBoundary(generateBoundary(kMixedMarker));
  }
}

bool Email2::hasInBody(std::string_view text) const {
  if (original_ != nullptr && original_->find(text) != std::string::npos) return true;
  // Base64 has no '-'.
  if (children_.empty()) {
    return transferEncoding_ != "base64" && body().find(text) != std::string_view::npos;
  }
  return std::any_of(children_.begin(), children_.end(),
                     [text](const auto& child) { return child->hasInBody(text); });
}

void Email2::normaliseOwnEncoding() {
  std::string scratch;
  const std::string_view wire = wireBody(scratch);
  const Charset charset(contentType_.charset);
  const std::string_view forAscii = charset.isUsAscii() ? "7bit" : "quoted-printable";
  std::string_view encoding = transferEncoding_;
  if (base::equalsNoCase(contentType_.type, "text/html")) {
    if (!charset.isUsAscii()) encoding = "quoted-printable";
  } else if (contentType_.isText()) {
    if (encoding == "8bit" || base::contains8bit(body()) || base::contains8bit(wire)) {
      encoding = forAscii;
    }
  }
  const bool mustStayPlain =
      contentType_.isMultipart() || base::beginsWithNoCase(contentType_.type, "message");
  if (!isEncoded(encoding) && !mustStayPlain && needsEncoding(wire)) {
    encoding = contentType_.isText() ? "quoted-printable" : "base64";
  }
  if (encoding != transferEncoding_) setTransferEncoding(std::string(encoding));
}

void Email2::appendMime(std::string& out) const {
  MimeSink sink(out);
  MimeMessage2::write(*this, sink);
}

bool Email2::writeMime(const MimeSink::Take& take) const {
  MimeSink sink(take);
  MimeMessage2::write(*this, sink);
  return sink.finish();
}

std::size_t Email2::sizeEstimate() const {
  constexpr std::size_t kLineEnds = 8;  // around a part
  if (original_ != nullptr) return original_->size() + kLineEnds;
  std::size_t size = body().size() + kLineEnds;
  if (transferEncoding_ == "base64") size += size / 3 + size / 28;
  if (transferEncoding_ == "quoted-printable") size += size / 16;
  for (const MimeField& field : header_.fields()) {
    size += field.name.size() + field.value.size() + 4;
  }
  for (const auto& child : children_) {
    size += child->sizeEstimate() + contentType_.boundary.size() + kLineEnds;
  }
  return size;
}

}  // namespace kelvado
