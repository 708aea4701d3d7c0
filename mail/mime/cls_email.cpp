#include "mail/mime/cls_email.h"

#include "base/ascii.h"
#include "base/log_base.h"
#include "base/log_null.h"
#include "base/text.h"
#include "base/unicode.h"
#include "mail/core/xstring.h"
#include "mail/mime/content_types_by_extension.h"
#include "mail/mime/email_reply.h"
#include "mail/mime/encoded_word.h"
#include "mail/mime/identifiers.h"
#include "mail/mime/mime_message2.h"
#include "platform/system/files.h"

namespace kelvado {
namespace {

// Lengths of buffers have 32 bits, and what a file becomes when it is encoded must fit, too.
constexpr std::size_t kMaxFileBytes = 0x40000000;

// File names are in the ANSI code page, everything in a message or log is UTF-8.
std::string pathAsUtf8(const std::string& path) {
  XString text;
  text.setAnsi(path.c_str());
  return text.getUtf8();
}

bool readFile(const std::string& path, std::string& bytes, base::LogBase& log) {
  if (platform::readWholeFile(path, bytes, kMaxFileBytes)) return true;
  log.LogData("filename", pathAsUtf8(path));
  log.LogError("File does not exist, or cannot open file.");
  return false;
}

// A part for a file's bytes, typed and encoded by the file's name.
std::unique_ptr<Email2> partForFile(std::string_view fileName, std::string bytes) {
  const std::string_view type = contentTypeForFile(fileName);
  auto part = Email2::createPart(type, type.starts_with("text") ? "quoted-printable" : "base64");
  part->setBody(std::move(bytes));
  return part;
}

std::unique_ptr<Email2> attachmentPart(std::string_view fileName, std::string bytes) {
  auto part = partForFile(fileName, std::move(bytes));
  ContentType type = part->contentType();
  type.name = fileName;
  if (type.isText() && base::contains8bit(part->body()) && base::isValidUtf8(part->body())) {
    type.charset = "utf-8";
  }
  part->setContentType(type);
  part->setDisposition("attachment", fileName);
  return part;
}

std::string withoutAngles(std::string_view contentId) {
  return std::string(contentId.substr(1, contentId.size() - 2));
}

}  // namespace

ClsEmail::ClsEmail() {
  base::LogNull log;
  createMessageIfMissing(log);
}

ClsEmail::ClsEmail(std::unique_ptr<Email2> message) : message_(std::move(message)) {}

ClsEmail::~ClsEmail() = default;

void ClsEmail::createMessageIfMissing(base::LogBase& log) {
  if (message_ == nullptr) message_ = Email2::createMessage(log);
}

std::unique_ptr<Email2> ClsEmail::cloneForSending(base::LogBase& log) const {
  if (message_ == nullptr) return nullptr;
  auto copy = message_->clone();
  for (const auto& [pattern, replacement] : replacePatterns_) {
    std::string text = "Replacing [";
    text.append(pattern).append("] with [").append(replacement).append("]");
    log.LogInfo(text);
    copy->replaceInTexts(pattern, replacement);
  }
  return copy;
}

bool ClsEmail::hasMessage(const MethodBracket& method) const {
  return message_ != nullptr || method.fail("No internal email object");
}

// --- header and addresses ---

void ClsEmail::putSubject(std::string_view subject) {
  const MethodBracket method(*this, "put_Subject");
  if (hasMessage(method)) message_->setHeaderField("Subject", subject, method.log());
}

void ClsEmail::putFrom(std::string_view from) {
  const MethodBracket method(*this, "put_From");
  if (hasMessage(method)) message_->setFrom(from);
}

bool ClsEmail::addRecipient(std::string_view methodName, RecipientKind kind, std::string_view name,
                            std::string_view address) {
  const MethodBracket method(*this, methodName);
  if (!hasMessage(method)) return false;
  method.log().LogData("name", name);
  method.log().LogData("address", address);
  if (address.empty()) return method.fail("No Email Address was provided");
  if (message_->addRecipient(kind, {std::string(name), std::string(address)})) return true;
  if (!hasRoomFor(1, kind)) return method.fail(kTooManyRecipients);
  return method.fail("Invalid email address: name = [" + std::string(name) + "], address = [" +
                     std::string(address) + "]");
}

bool ClsEmail::hasRoomFor(std::size_t count, RecipientKind kind) const {
  return count + message_->recipientList(kind).size() <= kMaxRecipients;
}

bool ClsEmail::addMultiple(std::string_view methodName, RecipientKind kind, std::string_view list) {
  const MethodBracket method(*this, methodName);
  if (!hasMessage(method)) return false;
  method.log().LogData("addresses", list);
  const std::vector<EmailAddress> entries = parseAddressList(list);
  if (entries.empty()) return method.fail("No Email Address was provided");
  if (!hasRoomFor(entries.size(), kind)) return method.fail(kTooManyRecipients);
  for (const EmailAddress& entry : entries) {
    if (message_->addRecipient(kind, entry)) continue;
    return method.fail("Invalid email address: name = [" + entry.name + "], address = [" +
                       entry.address + "]");
  }
  return true;
}

ClsEmail::Text ClsEmail::getRecipients(std::string_view methodName, RecipientKind kind) {
  const MethodBracket method(*this, methodName);
  if (!hasMessage(method)) return std::nullopt;
  std::string list;
  for (const EmailAddress& entry : message_->recipientList(kind)) {
    if (!list.empty()) list.append(", ");
    list.append(formatAddress(entry));
  }
  return list;
}

bool ClsEmail::addHeaderField(std::string_view name, std::string_view value) {
  const MethodBracket method(*this, "AddHeaderField");
  return hasMessage(method) && message_->setHeaderField(name, value, method.log());
}

ClsEmail::Text ClsEmail::getHeaderField(std::string_view name) {
  const MethodBracket method(*this, "GetHeaderField");
  if (!hasMessage(method) || !message_->header().has(name)) return std::nullopt;
  return message_->headerField(name);
}

ClsEmail::Text ClsEmail::getHeaderFieldName(int index) {
  const MethodBracket method(*this, "GetHeaderFieldName");
  if (!hasMessage(method)) return std::nullopt;
  const std::vector<MimeField>& fields = message_->header().fields();
  if (index < 0 || static_cast<std::size_t>(index) >= fields.size()) return std::nullopt;
  return fields[static_cast<std::size_t>(index)].name;
}

ClsEmail::Text ClsEmail::getHeaderFieldValue(int index) {
  const MethodBracket method(*this, "GetHeaderFieldValue");
  if (!hasMessage(method)) return std::nullopt;
  const std::vector<MimeField>& fields = message_->header().fields();
  if (index < 0 || static_cast<std::size_t>(index) >= fields.size()) return std::nullopt;
  return base::withoutLineBreaks(fields[static_cast<std::size_t>(index)].value);
}

// --- texts ---

void ClsEmail::putBody(std::string text) {
  const MethodBracket method(*this, "put_Body");
  if (hasMessage(method)) message_->setMainText(std::move(text));
}

bool ClsEmail::setHtmlBody(Text html) {
  const MethodBracket method(*this, "SetHtmlBody");
  if (!html.has_value()) return method.fail("HTML string is NULL");
  if (!hasMessage(method)) return false;
  message_->setOwnText(std::move(*html), "text/html");
  return true;
}

bool ClsEmail::setTextBody(std::string text, std::string_view contentType) {
  const MethodBracket method(*this, "SetTextBody");
  if (!hasMessage(method)) return false;
  const ContentType described = parseContentType(contentType.empty() ? "text/plain" : contentType);
  if (!described.isText()) return method.fail("The content type is not text");
  message_->setOwnText(std::move(text), described.type);
  return true;
}

bool ClsEmail::addAlternativeBody(std::string_view methodName, std::string text,
                                  std::string_view contentType) {
  const MethodBracket method(*this, methodName);
  if (!hasMessage(method)) return false;
  message_->setAlternativeText(std::move(text), contentType);
  return true;
}

ClsEmail::Text ClsEmail::getTextBody(std::string_view methodName, std::string_view contentType) {
  const MethodBracket method(*this, methodName);
  if (!hasMessage(method)) return std::nullopt;
  const Email2* part = message_->findText(contentType);
  return part == nullptr ? std::nullopt : Text(part->textBody());
}

// --- related items and attachments ---

bool ClsEmail::addRelatedFile2(const std::string& path, std::string_view nameInHtml) {
  const MethodBracket method(*this, "AddRelatedFile2");
  if (!hasMessage(method)) return false;
  std::string bytes;
  if (!readFile(path, bytes, method.log())) return method.fail("Failed to add related file");
  auto part = partForFile(path, std::move(bytes));
  part->setDisposition("inline", nameInHtml);
  part->setContentLocation(nameInHtml);
  message_->addRelated(std::move(part));
  return true;
}

ClsEmail::Text ClsEmail::addRelatedFile(const std::string& path) {
  const MethodBracket method(*this, "AddRelatedFile");
  if (!hasMessage(method)) return std::nullopt;
  std::string bytes;
  if (!readFile(path, bytes, method.log())) {
    method.fail("Failed to add related file");
    return std::nullopt;
  }
  const std::string contentId = generateContentId(method.log());
  auto part = partForFile(path, std::move(bytes));
  part->setDisposition("inline", baseName(pathAsUtf8(path)));
  part->setContentId(contentId);
  message_->addRelated(std::move(part));
  return withoutAngles(contentId);
}

ClsEmail::Text ClsEmail::addRelatedContent(std::string_view methodName, std::string_view nameInHtml,
                                           std::string bytes) {
  const MethodBracket method(*this, methodName);
  if (!hasMessage(method)) return std::nullopt;
  const std::string contentId = generateContentId(method.log());
  auto part = partForFile(nameInHtml, std::move(bytes));
  part->setDisposition("inline", nameInHtml);
  part->setContentLocation(nameInHtml);
  part->setContentId(contentId);
  message_->addRelated(std::move(part));
  return withoutAngles(contentId);
}

bool ClsEmail::addFileAttachment(const std::string& path) {
  const MethodBracket method(*this, "AddFileAttachment");
  if (!hasMessage(method)) return false;
  std::string bytes;
  if (!readFile(path, bytes, method.log())) return method.fail("Failed to add file attachment");
  message_->addAttachment(attachmentPart(baseName(pathAsUtf8(path)), std::move(bytes)));
  return true;
}

bool ClsEmail::addAttachment(std::string_view methodName, std::string_view fileName,
                             std::string bytes) {
  const MethodBracket method(*this, methodName);
  if (!hasMessage(method)) return false;
  if (fileName.empty()) return method.fail("No file name was provided");
  message_->addAttachment(attachmentPart(fileName, std::move(bytes)));
  return true;
}

// --- the message as MIME text ---

std::string ClsEmail::mimeText() const {
  const auto copy = message_->clone();
  copy->normaliseTransferEncodings();
  std::string mime;
  copy->appendMime(mime);
  return mime;
}

ClsEmail::Text ClsEmail::getMime() {
  const MethodBracket method(*this, "GetMime");
  return hasMessage(method) ? Text(mimeText()) : std::nullopt;
}

bool ClsEmail::saveEml(const std::string& path) {
  const MethodBracket method(*this, "SaveEml");
  if (!hasMessage(method)) return false;
  if (platform::writeWholeFile(path, mimeText())) return true;
  method.log().LogData("filename", pathAsUtf8(path));
  return method.fail("Failed to write file");
}

bool ClsEmail::loadEml(const std::string& path) {
  const MethodBracket method(*this, "LoadEml");
  std::string bytes;
  return readFile(path, bytes, method.log()) && parseInto(bytes, method);
}

bool ClsEmail::setFromMimeText(std::string_view text) {
  const MethodBracket method(*this, "SetFromMimeText");
  return parseInto(text, method);
}

// On failure the message stays what it was.
bool ClsEmail::parseInto(std::string_view text, const MethodBracket& method) {
  auto message = MimeMessage2::parse(text, method.log());
  if (message == nullptr) return false;
  message_ = std::move(message);
  return true;
}

// --- other messages from this one ---

std::unique_ptr<ClsEmail> ClsEmail::clone() {
  const MethodBracket method(*this, "Clone");
  if (!hasMessage(method)) return nullptr;
  auto copy = std::make_unique<ClsEmail>(message_->clone());
  copy->replacePatterns_ = replacePatterns_;
  return copy;
}

std::unique_ptr<ClsEmail> ClsEmail::createReply() {
  const MethodBracket method(*this, "CreateReply");
  if (!hasMessage(method)) return nullptr;
  return std::make_unique<ClsEmail>(createReplyTo(*message_, method.log()));
}

std::unique_ptr<ClsEmail> ClsEmail::createForward() {
  const MethodBracket method(*this, "CreateForward");
  if (!hasMessage(method)) return nullptr;
  return std::make_unique<ClsEmail>(createForwardOf(*message_, method.log()));
}

bool ClsEmail::setReplacePattern(std::string_view pattern, std::string_view replacement) {
  const MethodBracket method(*this, "SetReplacePattern");
  if (pattern.empty()) return method.fail("The pattern is empty");
  for (auto& [known, value] : replacePatterns_) {
    if (known != pattern) continue;
    value = replacement;
    return true;
  }
  replacePatterns_.emplace_back(pattern, replacement);
  return true;
}

std::string ClsEmail::bEncodeString(std::string_view text, std::string_view charset) {
  const MethodBracket method(*this, "BEncodeString");
  return encodeBWords(text, charset);
}

std::string ClsEmail::qEncodeString(std::string_view text, std::string_view charset) {
  const MethodBracket method(*this, "QEncodeString");
  return encodeQWords(text, charset);
}

}  // namespace kelvado
