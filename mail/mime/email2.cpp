// The header, the addresses and the body of a message or part; its structure is in
// email2_structure.cpp.
#include "mail/mime/email2.h"

#include <algorithm>
#include <clocale>

#include "base/ascii.h"
#include "base/text.h"
#include "base/unicode.h"
#include "mail/mime/charset.h"
#include "mail/mime/encoded_word.h"
#include "mail/mime/header_writer.h"
#include "mail/mime/identifiers.h"
#include "mail/mime/mail_date.h"
#include "mail/mime/mime_message2.h"
#include "mail/mime/mime_parameter.h"
#include "platform/system/clock.h"

namespace kelvado {
namespace {

constexpr std::string_view kPrivateBccField = "KVX-Bcc";

bool isTransferEncoding(std::string_view encoding) {
  for (const std::string_view known : {"7bit", "8bit", "binary", "quoted-printable", "base64"}) {
    if (base::equalsNoCase(encoding, known)) return true;
  }
  return false;
}

// Whether some line is longer than may be sent, or a NUL is in it.
bool needsEncoding(std::string_view body) {
  for (;;) {
    const std::size_t end = body.find_first_of("\r\n");
    const std::size_t length = std::min(end, body.size());
    if (length > kMaxLineOctets) return true;
    if (end == std::string_view::npos) break;
    body.remove_prefix(end + 1);
  }
  return false;
}

std::string formatAddressList(const std::vector<EmailAddress>& list) {
  std::string out;
  for (const EmailAddress& entry : list) {
    if (!out.empty()) out.append(",\r\n ");
    out.append(formatAddress(entry));
  }
  return out;
}

// Whether taking the line breaks out leaves every address as it is. Mail must go to no other one.
bool namesTheSame(std::string_view value, std::string_view clean) {
  const std::vector<EmailAddress> before = parseAddressList(value);
  const std::vector<EmailAddress> after = parseAddressList(clean);
  return std::equal(
      before.begin(), before.end(), after.begin(), after.end(),
      [](const EmailAddress& a, const EmailAddress& b) { return a.address == b.address; });
}

std::string_view recipientField(RecipientKind kind) {
  switch (kind) {
    case RecipientKind::To:
      return "To";
    case RecipientKind::Cc:
      return "Cc";
    default:
      return kPrivateBccField;
  }
}

// Day and month names come from this system's own tables and need no locale; the rest of the
// process sees the one that the library has always set.
void setProcessLocaleOnce() {
  [[maybe_unused]] static const char* const locale = std::setlocale(LC_ALL, "English");
}

}  // namespace

std::unique_ptr<Email2> Email2::createMessage(base::LogBase& log) {
  setProcessLocaleOnce();
  auto message = std::unique_ptr<Email2>(new Email2);
  MimeHeader& header = message->header_;
  platform::Clock& clock = platform::systemClock();
  header.add("MIME-Version", "1.0");
  header.add("Date", formatMailDate(clock.localTime(), clock.timeZone()));
  header.add("Message-ID", kelvado::generateMessageId(log));
  message->setContentType(ContentType::ofType("text/plain"));
  message->setTransferEncoding("7bit");
  header.add("X-Priority", "3 (Normal)");
  return message;
}

std::unique_ptr<Email2> Email2::createPart(std::string_view contentType,
                                           std::string_view transferEncoding) {
  auto part = std::unique_ptr<Email2>(new Email2);
  part->setContentType(ContentType::ofType(contentType));
  part->setTransferEncoding(transferEncoding);
  return part;
}

Email2::~Email2() = default;

std::unique_ptr<Email2> Email2::clone() const {
  auto copy = std::unique_ptr<Email2>(new Email2);
  copy->header_ = header_;
  copy->contentType_ = contentType_;
  copy->transferEncoding_ = transferEncoding_;
  copy->disposition_ = disposition_;
  copy->filename_ = filename_;
  copy->from_ = from_;
  copy->bounceAddress_ = bounceAddress_;
  copy->body_ = body_;
  copy->bodyIsUtf8_ = bodyIsUtf8_;
  copy->keepLineEnds_ = keepLineEnds_;
  for (const auto& child : children_) copy->children_.push_back(child->clone());
  return copy;
}

bool Email2::setHeaderField(std::string_view name, std::string_view value, base::LogBase& log) {
  if (name.empty()) return true;
  if (!isValidFieldName(name)) {
    log.LogData("name", name);
    log.LogError("Invalid header field name");
    return false;
  }
  const std::string clean = base::withoutLineBreaks(value);
  const bool addresses = isAddressField(name) || base::equalsNoCase(name, kPrivateBccField);
  if (addresses && !namesTheSame(value, clean)) {
    log.LogData("value", value);
    log.LogError("An address holds a line break");
    return false;
  }
  adoptCharsetFor(clean);
  if (base::equalsNoCase(name, "Content-Transfer-Encoding")) {
    if (!isTransferEncoding(clean) || !children_.empty()) {
      log.LogData("value", clean);
      log.LogError("Invalid transfer encoding");
      return false;
    }
    setTransferEncoding(clean);
  } else if (base::equalsNoCase(name, "Content-ID")) {
    setContentId(clean);
  } else if (base::equalsNoCase(name, "Content-Type")) {
    return setContentTypeField(clean, log);
  } else if (base::equalsNoCase(name, "Content-Disposition")) {
    setContentDisposition(clean);
  } else if (base::equalsNoCase(name, "From")) {
    setFrom(clean);
  } else if (base::equalsNoCase(name, "Reply-To")) {
    const std::string list = formatAddressList(parseAddressList(clean));
    header_.set("Reply-To", list.empty() ? clean : list);
  } else {
    if (base::equalsNoCase(name, "Return-Path")) bounceAddress_ = parseAddress(clean).address;
    header_.set(name, clean);
  }
  return true;
}

bool Email2::setContentTypeField(std::string_view value, base::LogBase& log) {
  ContentType contentType = parseContentType(value);
  if (contentType.isMultipart() == children_.empty() ||
      (contentType.isMultipart() && contentType.boundary != contentType_.boundary)) {
    log.LogData("value", value);
    log.LogError("Content-Type does not fit the structure of the message");
    return false;
  }
  contentType_ = std::move(contentType);
  // The value as it was given: it may have parameters that are not kept beside the header.
  header_.set("Content-Type", std::string(value));
  keepCharsetTrue();
  return true;
}

void Email2::setContentDisposition(std::string_view value) {
  std::vector<MimeParameter> parameters;
  disposition_ = base::lowered(parseParameterised(value, parameters));
  filename_ = parameterNamed(parameters, "filename");
  header_.set("Content-Disposition", std::string(value));
}

void Email2::removeHeaderField(std::string_view name) {
  header_.remove(name);
  if (base::equalsNoCase(name, "From")) from_ = {};
}

std::string Email2::headerField(std::string_view name) const {
  return base::withoutLineBreaks(header_.get(name));
}

void Email2::setFrom(std::string_view text) {
  if (text.find('@') == std::string_view::npos) return;
  from_ = parseAddress(text);
  adoptCharsetFor(from_.name);
  header_.set("From", base::withoutLineBreaks(formatAddress(from_)));
  if (!header_.has("Return-Path"))
    header_.set("Return-Path", base::withoutLineBreaks(from_.address));
}

void Email2::generateMessageId(base::LogBase& log) {
  header_.set("Message-ID", kelvado::generateMessageId(log));
}

bool Email2::addRecipient(RecipientKind kind, const EmailAddress& recipient) {
  const bool undisclosed = isUndisclosedRecipients(recipient.address);
  if (!undisclosed && !isSendableAddress(recipient.address)) return false;

  const EmailAddress entry =
      undisclosed ? parseAddress(recipient.address)
                  : EmailAddress{base::withoutLineBreaks(decodeHeaderText(recipient.name)),
                                 recipient.address};
  adoptCharsetFor(entry.name);
  const std::string_view field = recipientField(kind);
  std::string list = header_.get(field);
  if (!list.empty()) list.append(",\r\n ");
  list.append(formatAddress(entry));
  header_.set(field, std::move(list));
  return true;
}

std::vector<EmailAddress> Email2::recipientList(RecipientKind kind) const {
  std::vector<EmailAddress> list = parseAddressList(header_.get(recipientField(kind)));
  if (kind == RecipientKind::Bcc) {
    for (EmailAddress& entry : parseAddressList(header_.get("Bcc"))) {
      list.push_back(std::move(entry));
    }
  }
  return list;
}

std::vector<std::string> Email2::recipients(RecipientKind kind) const {
  std::vector<std::string> addresses;
  for (EmailAddress& entry : recipientList(kind)) addresses.push_back(std::move(entry.address));
  return addresses;
}

std::string Email2::reversePath() const {
  return bounceAddress_.value_or(from_.address);
}

void Email2::setContentType(const ContentType& contentType) {
  contentType_ = contentType;
  header_.set("Content-Type", contentType_.format());
}

void Email2::setCharset(std::string_view charset) {
  contentType_.charset = charset;
  header_.set("Content-Type", contentType_.format());
}

void Email2::adoptCharsetFor(std::string_view text) {
  if (contentType_.charset.empty() && base::contains8bit(text))
    setCharset(Charset::forText(text).name());
}

// A label that the text contradicts would garble it for every reader; and text that is not
// ASCII-based has no line ends that mail knows.
void Email2::keepCharsetTrue() {
  const Charset charset(contentType_.charset);
  if (!bodyIsUtf8_ || charset.isUtf8()) return;
  // One that says "us-ascii" stays so.
  const bool needsNone = !base::contains8bit(body()) || charset.isUsAscii();
  const bool carries =
      charset.isAsciiBased() && (needsNone || EncodingConvert::carries(charset, body()));
  if (!carries) setCharset("utf-8");
}

void Email2::setTransferEncoding(std::string_view encoding) {
  transferEncoding_ = base::lowered(encoding);
  header_.set("Content-Transfer-Encoding", transferEncoding_);
}

void Email2::setDisposition(std::string_view disposition, std::string_view filename) {
  disposition_ = disposition;
  filename_ = base::withoutLineBreaks(filename);
  std::string parameter;
  appendParameter("filename", filename_, parameter);
  std::string value = disposition_ + ";";
  const std::size_t used = std::string_view("Content-Disposition: ").size() + value.size() + 1;
  value.append(used + parameter.size() <= kMaxHeaderColumns ? " " : "\r\n\t").append(parameter);
  header_.set("Content-Disposition", std::move(value));
}

void Email2::setContentId(std::string_view contentId) {
  header_.set("Content-ID", base::withoutLineBreaks(contentId));
}

void Email2::setContentLocation(std::string_view location) {
  header_.set("Content-Location", base::withoutLineBreaks(location));
}

bool Email2::isAttachment() const {
  if (disposition_ == "attachment") return true;
  return disposition_ != "inline" && !(filename_.empty() && contentType_.name.empty());
}

void Email2::setTextBody(std::string text) {
  body_ = std::make_shared<const DataBuffer>(std::move(text));
  bodyIsUtf8_ = true;
  keepLineEnds_ = false;
  keepCharsetTrue();
}

void Email2::setBody(std::string bytes) {
  body_ = std::make_shared<const DataBuffer>(std::move(bytes));
  bodyIsUtf8_ = false;
  keepLineEnds_ = true;
}

std::string_view Email2::body() const {
  return body_ == nullptr ? std::string_view() : body_->view();
}

std::string Email2::textBody() const {
  std::string text;
  bool lossy = false;
  const bool converted =
      !bodyIsUtf8_ && EncodingConvert::toUtf8(Charset(contentType_.charset), body(), text, &lossy);
  // A wrong label is best read as UTF-8, when it can be.
  const bool wrongLabel = lossy && base::isValidUtf8(body());
  return converted && !wrongLabel ? text : repairedUtf8(body());
}

std::string_view Email2::wireBody(std::string& scratch) const {
  const Charset charset(contentType_.charset);
  const bool asItIs = !bodyIsUtf8_ || !contentType_.isText() || charset.isUtf8() ||
                      charset.codePage() == kNoCodePage ||
                      (charset.isUsAscii() && !base::contains8bit(body()));
  if (asItIs) return body();
  EncodingConvert::fromUtf8(charset, body(), scratch);
  return scratch;
}

void Email2::normaliseTransferEncodings() {
  if (children_.empty()) normaliseOwnEncoding();
  for (const auto& child : children_) child->normaliseTransferEncodings();
  // A boundary that others chose, or that somebody knows, must not be found in a body.
  if (contentType_.isMultipart() && hasInBody("--" + contentType_.boundary)) {
    contentType_.boundary = generateBoundary(kMixedMarker);
    setContentType(ContentType(contentType_));
  }
}

bool Email2::hasInBody(std::string_view text) const {
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
    if (encoding == "8bit" || base::contains8bit(body()) || base::contains8bit(wire))
      encoding = forAscii;
  }
  // A line longer than the protocol allows would be cut on the way.
  const bool encoded = encoding == "quoted-printable" || encoding == "base64";
  const bool mustStayPlain =
      contentType_.isMultipart() || base::beginsWithNoCase(contentType_.type, "message");
  if (!encoded && !mustStayPlain && needsEncoding(wire)) {
    encoding = contentType_.isText() ? "quoted-printable" : "base64";
  }
  if (encoding != transferEncoding_) setTransferEncoding(std::string(encoding));
}

void Email2::appendMime(std::string& out) const {
  MimeMessage2::write(*this, out);
}

std::size_t Email2::sizeEstimate() const {
  constexpr std::size_t kLineEnds = 8;  // around a part
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
