// The header and the addresses of a message or part. Its structure is in email2_structure.cpp, its
// text and body in email2_text.cpp.
#include "mail/mime/email2.h"

#include <algorithm>
#include <clocale>
#include <utility>

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
// By Email2::RecipientField.
constexpr std::string_view kRecipientFieldNames[] = {"To", "Cc", kPrivateBccField, "Bcc"};
constexpr std::string_view kAddressSeparator = ",\r\n ";  // one address a line

bool isTransferEncoding(std::string_view encoding) {
  for (const std::string_view known : {"7bit", "8bit", "binary", "quoted-printable", "base64"}) {
    if (base::equalsNoCase(encoding, known)) return true;
  }
  return false;
}

std::string formatAddressList(const std::vector<EmailAddress>& list) {
  std::string out;
  for (const EmailAddress& entry : list) {
    if (!out.empty()) out.append(kAddressSeparator);
    out.append(formatAddress(entry));
  }
  return out;
}

// Whether the addresses are the same without the line breaks. Mail must go to no other one.
bool namesTheSame(std::string_view value, std::string_view clean) {
  const std::vector<EmailAddress> before = parseAddressList(value);
  const std::vector<EmailAddress> after = parseAddressList(clean);
  return std::equal(
      before.begin(), before.end(), after.begin(), after.end(),
      [](const EmailAddress& a, const EmailAddress& b) { return a.address == b.address; });
}

bool readRecipients(std::string_view value, std::vector<EmailAddress>& list, base::LogBase& log) {
  list = parseAddressList(value);
  if (list.size() <= kMaxRecipients) return true;
  log.LogError(kTooManyRecipients);
  return false;
}

// Of the whole process, once, before the first message. Nothing here depends on it (dates have
// tables of their own); programs that use the library have always found it set.
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
  copy->recipients_ = recipients_;
  copy->bounceAddress_ = bounceAddress_;
  copy->body_ = body_;
  copy->bodyIsUtf8_ = bodyIsUtf8_;
  copy->exactLineEnds_ = exactLineEnds_;
  copy->original_ = original_;
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
  const RecipientField field = recipientField(name);
  const bool addresses = isAddressField(name) || field != kNoRecipientField;
  if (addresses && clean.size() != value.size() && !namesTheSame(value, clean)) {
    log.LogData("value", value);
    log.LogError("An address holds a line break");
    return false;
  }
  std::vector<EmailAddress> list;
  if (field != kNoRecipientField && !readRecipients(clean, list, log)) return false;
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
    const std::string formatted = formatAddressList(parseAddressList(clean));
    header_.set("Reply-To", formatted.empty() ? clean : formatted);
  } else {
    if (base::equalsNoCase(name, "Return-Path")) bounceAddress_ = parseAddress(clean).address;
    if (field != kNoRecipientField) recipients_[field] = std::move(list);
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
  // The value as it was given, with the parameters that have no member here.
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
  const RecipientField field = recipientField(name);
  if (field != kNoRecipientField) recipients_[field].clear();
}

std::string Email2::headerField(std::string_view name) const {
  return base::withoutLineBreaks(header_.get(name));
}

void Email2::setFrom(std::string_view text) {
  if (text.find('@') == std::string_view::npos) return;
  from_ = parseAddress(text);
  adoptCharsetFor(from_.name);
  header_.set("From", base::withoutLineBreaks(formatAddress(from_)));
  if (!header_.has("Return-Path")) {
    header_.set("Return-Path", base::withoutLineBreaks(from_.address));
  }
}

void Email2::generateMessageId(base::LogBase& log) {
  header_.set("Message-ID", kelvado::generateMessageId(log));
}

Email2::RecipientField Email2::recipientField(std::string_view name) {
  int field = kTo;
  while (field != kRecipientFields && !base::equalsNoCase(name, kRecipientFieldNames[field])) {
    ++field;
  }
  return field == kRecipientFields ? kNoRecipientField : static_cast<RecipientField>(field);
}

bool Email2::addRecipient(RecipientKind kind, const EmailAddress& recipient) {
  const bool undisclosed = isUndisclosedRecipients(recipient.address);
  if (!undisclosed && !isSendableAddress(recipient.address)) return false;
  const RecipientField field = kind == RecipientKind::To   ? kTo
                               : kind == RecipientKind::Cc ? kCc
                                                           : kPrivateBcc;
  std::vector<EmailAddress>& list = recipients_[field];
  if (list.size() >= kMaxRecipients) return false;

  EmailAddress entry = undisclosed
                           ? parseAddress(recipient.address)
                           : EmailAddress{base::withoutLineBreaks(decodeHeaderText(recipient.name)),
                                          recipient.address};
  adoptCharsetFor(entry.name);
  std::string& value = header_.only(kRecipientFieldNames[field]).value;
  if (!value.empty()) value.append(kAddressSeparator);
  value.append(formatAddress(entry));
  if (!undisclosed) list.push_back(std::move(entry));
  return true;
}

std::vector<EmailAddress> Email2::recipientList(RecipientKind kind) const {
  if (kind == RecipientKind::To) return recipients_[kTo];
  if (kind == RecipientKind::Cc) return recipients_[kCc];
  std::vector<EmailAddress> list = recipients_[kPrivateBcc];
  list.insert(list.end(), recipients_[kBcc].begin(), recipients_[kBcc].end());
  return list;
}

std::vector<std::string> Email2::recipients(RecipientKind kind) const {
  std::vector<std::string> addresses;
  for (EmailAddress& entry : recipientList(kind)) addresses.push_back(std::move(entry.address));
  return addresses;
}

void Email2::moveBlindCopiesToBcc() {
  if (!header_.has(kPrivateBccField)) return;
  header_.set("Bcc", header_.get(kPrivateBccField));
  header_.remove(kPrivateBccField);
  recipients_[kBcc] = std::exchange(recipients_[kPrivateBcc], {});
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

std::unique_ptr<Email2> Email2::createRead(MimeHeader header, std::string_view defaultType,
                                           base::LogBase& log) {
  auto part = std::unique_ptr<Email2>(new Email2);
  MimeHeader& fields = part->header_;
  fields = std::move(header);
  for (int field = kTo; field != kRecipientFields; ++field) {
    const std::string value = fields.get(kRecipientFieldNames[field]);
    if (!readRecipients(value, part->recipients_[static_cast<std::size_t>(field)], log)) {
      return nullptr;
    }
  }
  part->from_ = parseAddress(fields.get("From"));
  part->transferEncoding_ = base::lowered(base::trimmed(fields.get("Content-Transfer-Encoding")));
  std::vector<MimeParameter> parameters;
  part->disposition_ =
      base::lowered(parseParameterised(fields.get("Content-Disposition"), parameters));
  part->filename_ = parameterNamed(parameters, "filename");
  part->contentType_ = parseContentType(fields.get("Content-Type"));
  // What the library wrote itself gets its folds back.
  const std::string formatted = part->contentType_.format();
  if (fields.get("Content-Type") == base::withoutLineBreaks(formatted)) {
    fields.set("Content-Type", formatted);
  }
  if (part->contentType_.type.empty()) part->contentType_.type = defaultType;
  return part;
}

}  // namespace kelvado
