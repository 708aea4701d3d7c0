// Each method converts its arguments, forwards to ClsEmail and converts the result.
#include "mail/mime/kv_email.h"

#include <optional>
#include <string>

#include "mail/mime/cls_email.h"

namespace kelvado {
namespace {

std::string bytesArgument(const void* data, std::size_t size) {
  return data == nullptr ? std::string() : std::string(static_cast<const char*>(data), size);
}

}  // namespace

KvEmail::KvEmail() : impl_(std::make_unique<ClsEmail>()) {}

KvEmail::KvEmail(std::unique_ptr<ClsEmail> impl, bool utf8) : impl_(std::move(impl)) {
  put_Utf8(utf8);
}

KvEmail::~KvEmail() = default;

ClsBase* KvEmail::base() const {
  return impl_.get();
}

ClsEmail& KvEmail::implementation() const {
  checkValid();
  return *impl_;
}

std::unique_ptr<KvEmail> KvEmail::wrapped(std::unique_ptr<ClsEmail> impl) const {
  if (impl == nullptr) return nullptr;
  return std::unique_ptr<KvEmail>(new KvEmail(std::move(impl), get_Utf8()));
}

void KvEmail::put_Subject(const char* subject) {
  implementation().putSubject(textArgument(subject));
}

void KvEmail::put_From(const char* from) {
  implementation().putFrom(textArgument(from));
}

void KvEmail::put_Body(const char* text) {
  implementation().putBody(textArgument(text));
}

bool KvEmail::AddTo(const char* name, const char* address) {
  return implementation().addRecipient("AddTo", RecipientKind::To, textArgument(name),
                                       textArgument(address));
}

bool KvEmail::AddCC(const char* name, const char* address) {
  return implementation().addRecipient("AddCC", RecipientKind::Cc, textArgument(name),
                                       textArgument(address));
}

bool KvEmail::AddBcc(const char* name, const char* address) {
  return implementation().addRecipient("AddBcc", RecipientKind::Bcc, textArgument(name),
                                       textArgument(address));
}

bool KvEmail::AddMultipleTo(const char* addresses) {
  return implementation().addMultiple("AddMultipleTo", RecipientKind::To, textArgument(addresses));
}

bool KvEmail::AddMultipleCC(const char* addresses) {
  return implementation().addMultiple("AddMultipleCC", RecipientKind::Cc, textArgument(addresses));
}

bool KvEmail::AddMultipleBcc(const char* addresses) {
  return implementation().addMultiple("AddMultipleBcc", RecipientKind::Bcc,
                                      textArgument(addresses));
}

const char* KvEmail::GetTo() {
  return resultOrNull(implementation().getRecipients("GetTo", RecipientKind::To));
}

const char* KvEmail::GetCC() {
  return resultOrNull(implementation().getRecipients("GetCC", RecipientKind::Cc));
}

const char* KvEmail::GetBcc() {
  return resultOrNull(implementation().getRecipients("GetBcc", RecipientKind::Bcc));
}

bool KvEmail::AddHeaderField(const char* name, const char* value) {
  return implementation().addHeaderField(textArgument(name), textArgument(value));
}

const char* KvEmail::GetHeaderField(const char* name) {
  return resultOrNull(implementation().getHeaderField(textArgument(name)));
}

const char* KvEmail::GetHeaderFieldName(int index) {
  return resultOrNull(implementation().getHeaderFieldName(index));
}

const char* KvEmail::GetHeaderFieldValue(int index) {
  return resultOrNull(implementation().getHeaderFieldValue(index));
}

bool KvEmail::SetHtmlBody(const char* html) {
  if (html == nullptr) return implementation().setHtmlBody(std::nullopt);
  return implementation().setHtmlBody(textArgument(html));
}

bool KvEmail::SetTextBody(const char* text, const char* contentType) {
  return implementation().setTextBody(textArgument(text), textArgument(contentType));
}

bool KvEmail::AddPlainTextAlternativeBody(const char* text) {
  return implementation().addAlternativeBody("AddPlainTextAlternativeBody", textArgument(text),
                                             "text/plain");
}

bool KvEmail::AddHtmlAlternativeBody(const char* html) {
  return implementation().addAlternativeBody("AddHtmlAlternativeBody", textArgument(html),
                                             "text/html");
}

const char* KvEmail::GetPlainTextBody() {
  return resultOrNull(implementation().getTextBody("GetPlainTextBody", "text/plain"));
}

const char* KvEmail::GetHtmlBody() {
  return resultOrNull(implementation().getTextBody("GetHtmlBody", "text/html"));
}

bool KvEmail::AddRelatedFile2(const char* path, const char* nameInHtml) {
  return implementation().addRelatedFile2(pathArgument(path), textArgument(nameInHtml));
}

const char* KvEmail::AddRelatedFile(const char* path) {
  return resultOrNull(implementation().addRelatedFile(pathArgument(path)));
}

const char* KvEmail::AddRelatedString(const char* nameInHtml, const char* text) {
  return resultOrNull(implementation().addRelatedContent(
      "AddRelatedString", textArgument(nameInHtml), untrimmedArgument(text)));
}

const char* KvEmail::AddRelatedData(const char* nameInHtml, const void* data, std::size_t size) {
  return resultOrNull(implementation().addRelatedContent("AddRelatedData", textArgument(nameInHtml),
                                                         bytesArgument(data, size)));
}

bool KvEmail::AddFileAttachment(const char* path) {
  return implementation().addFileAttachment(pathArgument(path));
}

bool KvEmail::AddStringAttachment(const char* fileName, const char* text) {
  return implementation().addAttachment("AddStringAttachment", textArgument(fileName),
                                        untrimmedArgument(text));
}

bool KvEmail::AddDataAttachment(const char* fileName, const void* data, std::size_t size) {
  return implementation().addAttachment("AddDataAttachment", textArgument(fileName),
                                        bytesArgument(data, size));
}

const char* KvEmail::GetMime() {
  return resultOrNull(implementation().getMime());
}

bool KvEmail::SaveEml(const char* path) {
  return implementation().saveEml(pathArgument(path));
}

bool KvEmail::LoadEml(const char* path) {
  return implementation().loadEml(pathArgument(path));
}

bool KvEmail::SetFromMimeText(const char* mime) {
  // Not converted: each part of MIME text names its own charset.
  return implementation().setFromMimeText(mime == nullptr ? "" : mime);
}

std::unique_ptr<KvEmail> KvEmail::Clone() {
  return wrapped(implementation().clone());
}

std::unique_ptr<KvEmail> KvEmail::CreateReply() {
  return wrapped(implementation().createReply());
}

std::unique_ptr<KvEmail> KvEmail::CreateForward() {
  return wrapped(implementation().createForward());
}

bool KvEmail::SetReplacePattern(const char* pattern, const char* replacement) {
  return implementation().setReplacePattern(textArgument(pattern), textArgument(replacement));
}

const char* KvEmail::BEncodeString(const char* text, const char* charset) {
  return result(implementation().bEncodeString(textArgument(text), textArgument(charset)));
}

const char* KvEmail::QEncodeString(const char* text, const char* charset) {
  return result(implementation().qEncodeString(textArgument(text), textArgument(charset)));
}

}  // namespace kelvado
