#include "mail/smtp/kv_mail_man.h"

#include "mail/smtp/cls_mail_man.h"

namespace kelvado {
namespace {

constexpr std::uint64_t kMsPerSecond = 1000;

// Null clears; an empty text is a value that is empty. The log has different lines for the two.
std::optional<std::string> credential(const char* given, std::string text) {
  if (given == nullptr) return std::nullopt;
  return text;
}

std::string_view rawText(const char* text) {
  return text == nullptr ? "" : text;
}

}  // namespace

KvMailMan::KvMailMan() : impl_(std::make_unique<ClsMailMan>()) {}
KvMailMan::~KvMailMan() = default;

ClsBase* KvMailMan::base() const {
  return impl_.get();
}

bool KvMailMan::UnlockComponent(const char* code) {
  return impl_->unlockComponent(textArgument(code));
}

void KvMailMan::put_SmtpHost(const char* text) {
  impl_->settings().server.host = textArgument(text);
}
const char* KvMailMan::get_SmtpHost() {
  return result(impl_->settings().server.host);
}
void KvMailMan::put_SmtpPort(int value) {
  impl_->settings().server.port = value;
}
int KvMailMan::get_SmtpPort() const {
  return impl_->settings().server.port;
}
void KvMailMan::put_SmtpSsl(bool value) {
  impl_->settings().server.ssl = value;
}
bool KvMailMan::get_SmtpSsl() const {
  return impl_->settings().server.ssl;
}
void KvMailMan::put_StartTLS(bool value) {
  impl_->settings().server.startTls = value;
}
bool KvMailMan::get_StartTLS() const {
  return impl_->settings().server.startTls;
}
void KvMailMan::put_RequireVerifiedCertificate(bool value) {
  impl_->settings().server.tls.verified = value;
}
bool KvMailMan::get_RequireVerifiedCertificate() const {
  return impl_->settings().server.tls.verified;
}
bool KvMailMan::SetSslClientCert(const char* pemFile) {
  return impl_->setSslClientCert(pathArgument(pemFile));
}
void KvMailMan::SetSslCertRequirement(const char* name, const char* value) {
  impl_->settings().server.tls.name = textArgument(name);
  impl_->settings().server.tls.value = textArgument(value);
}
void KvMailMan::put_ConnectTimeout(std::uint32_t value) {
  impl_->settings().server.connectTimeoutSeconds = value;
}
std::uint32_t KvMailMan::get_ConnectTimeout() const {
  return impl_->settings().server.connectTimeoutSeconds;
}
void KvMailMan::put_ReadTimeout(std::uint32_t seconds) {
  impl_->settings().server.readTimeoutMs = seconds * kMsPerSecond;
}
std::uint32_t KvMailMan::get_ReadTimeout() const {
  return static_cast<std::uint32_t>(impl_->settings().server.readTimeoutMs / kMsPerSecond);
}
void KvMailMan::put_HeloHostname(const char* text) {
  impl_->settings().server.helloName = textArgument(text);
}
const char* KvMailMan::get_HeloHostname() {
  return result(impl_->settings().server.helloName);
}

void KvMailMan::put_SmtpUsername(const char* text) {
  impl_->settings().server.credentials.username = credential(text, textArgument(text));
}
const char* KvMailMan::get_SmtpUsername() {
  return result(impl_->settings().server.credentials.username.value_or(""));
}
void KvMailMan::put_HttpProxyHostname(const char* text) {
  impl_->settings().server.proxy.host = textArgument(text);
}
const char* KvMailMan::get_HttpProxyHostname() {
  return result(impl_->settings().server.proxy.host);
}
void KvMailMan::put_HttpProxyPort(int port) {
  impl_->settings().server.proxy.port = port;
}
int KvMailMan::get_HttpProxyPort() const {
  return impl_->settings().server.proxy.port;
}
// Not trimmed: a blank may be part of a password.
void KvMailMan::put_SmtpPassword(const char* text) {
  impl_->settings().server.credentials.password = credential(text, untrimmedArgument(text));
}
const char* KvMailMan::get_SmtpPassword() {
  return result(impl_->settings().server.credentials.password.value_or(""));
}
void KvMailMan::put_OAuth2AccessToken(const char* token) {
  impl_->settings().server.credentials.accessToken = textArgument(token);
}
const char* KvMailMan::get_OAuth2AccessToken() {
  return result(impl_->settings().server.credentials.accessToken);
}
void KvMailMan::put_SmtpDomain(const char* text) {
  impl_->settings().server.credentials.domain = textArgument(text);
}
const char* KvMailMan::get_SmtpDomain() {
  return result(impl_->settings().server.credentials.domain);
}
void KvMailMan::put_SmtpAuthMethod(const char* text) {
  impl_->settings().server.credentials.method = textArgument(text);
}
const char* KvMailMan::get_SmtpAuthMethod() {
  return result(impl_->settings().server.credentials.method);
}

void KvMailMan::put_SendIndividual(bool value) {
  impl_->settings().send.individual = value;
}
bool KvMailMan::get_SendIndividual() const {
  return impl_->settings().send.individual;
}
void KvMailMan::put_AutoGenMessageId(bool value) {
  impl_->settings().send.autoMessageId = value;
}
bool KvMailMan::get_AutoGenMessageId() const {
  return impl_->settings().send.autoMessageId;
}
void KvMailMan::put_AllOrNone(bool value) {
  impl_->settings().send.allOrNone = value;
}
bool KvMailMan::get_AllOrNone() const {
  return impl_->settings().send.allOrNone;
}
void KvMailMan::put_DsnRet(const char* text) {
  impl_->settings().send.dsn.ret = textArgument(text);
}
void KvMailMan::put_DsnEnvid(const char* text) {
  impl_->settings().send.dsn.envid = textArgument(text);
}
void KvMailMan::put_DsnNotify(const char* text) {
  impl_->settings().send.dsn.notify = textArgument(text);
}
void KvMailMan::put_SentMailLog(const char* path) {
  impl_->settings().send.sentMailLog = pathArgument(path);
}
void KvMailMan::put_HeartbeatMs(std::uint32_t value) {
  impl_->settings().heartbeatMs = value;
}
std::uint32_t KvMailMan::get_HeartbeatMs() const {
  return impl_->settings().heartbeatMs;
}
void KvMailMan::put_Progress(KvProgress* progress) {
  impl_->settings().progress = progress;
}

bool KvMailMan::SendEmail(KvEmail* email) {
  return impl_->sendEmail(email == nullptr ? nullptr : &email->implementation());
}

bool KvMailMan::SendBundle(const std::vector<KvEmail*>& bundle) {
  std::vector<ClsEmail*> emails;
  for (KvEmail* email : bundle) {
    emails.push_back(email == nullptr ? nullptr : &email->implementation());
  }
  return impl_->sendBundle(emails);
}

bool KvMailMan::SendToDistributionList(KvEmail& email, const std::vector<std::string>& addresses) {
  return impl_->sendToDistributionList(&email.implementation(), addresses);
}

bool KvMailMan::QuickSend(const char* from, const char* to, const char* subject, const char* body,
                          const char* smtpHost) {
  return impl_->quickSend(textArgument(from), textArgument(to), textArgument(subject),
                          untrimmedArgument(body), textArgument(smtpHost));
}

bool KvMailMan::SendMime(const char* from, const char* to, const char* mime) {
  return impl_->sendMime(textArgument(from), textArgument(to), rawText(mime));
}

bool KvMailMan::SendMimeToList(const char* from, const std::vector<std::string>& addresses,
                               const char* mime) {
  return impl_->sendMimeToList(textArgument(from), addresses, rawText(mime));
}

const char* KvMailMan::RenderToMime(KvEmail& email) {
  const std::optional<std::string> mime = impl_->renderToMime(&email.implementation());
  return mime ? result(*mime) : nullptr;
}

bool KvMailMan::VerifyRecipients(KvEmail& email) {
  return impl_->verifyRecipients(&email.implementation());
}

std::vector<std::string> KvMailMan::GetBadEmailAddresses() const {
  return impl_->badAddresses();
}
void KvMailMan::ClearBadEmailAddresses() {
  impl_->clearBadAddresses();
}
unsigned KvMailMan::get_NumAccepted() const {
  return impl_->lastSend().accepted;
}
unsigned KvMailMan::get_NumRecipients() const {
  return impl_->lastSend().total;
}

SmtpFailure KvMailMan::get_LastFailure() const {
  return impl_->failure();
}

SmtpSession KvMailMan::get_LastSession() const {
  return impl_->session();
}

bool KvMailMan::OpenSmtpConnection() {
  return impl_->openSmtpConnection();
}
bool KvMailMan::CloseSmtpConnection() {
  return impl_->closeSmtpConnection();
}
bool KvMailMan::SmtpReset() {
  return impl_->smtpReset();
}
bool KvMailMan::SmtpNoop() {
  return impl_->smtpNoop();
}
bool KvMailMan::VerifySmtpConnection() {
  return impl_->verifySmtpConnection();
}
bool KvMailMan::VerifySmtpLogin() {
  return impl_->verifySmtpLogin();
}
bool KvMailMan::IsSmtpDsnCapable() {
  return impl_->isSmtpDsnCapable();
}

const char* KvMailMan::GetSmtpSslServerCert() {
  const std::optional<std::string> pem = impl_->smtpSslServerCert();
  return pem ? result(*pem) : nullptr;
}

const char* KvMailMan::MxLookup(const char* emailOrDomain) {
  const std::optional<std::string> host = impl_->mxLookup(textArgument(emailOrDomain));
  return host ? result(*host) : nullptr;
}
std::vector<std::string> KvMailMan::MxLookupAll(const char* emailOrDomain) {
  return impl_->mxLookupAll(textArgument(emailOrDomain));
}

bool KvMailMan::SendQ(KvEmail&) {
  return impl_->queueRefused("SendQ");
}
bool KvMailMan::SendQ2(KvEmail&, const char*) {
  return impl_->queueRefused("SendQ2");
}
bool KvMailMan::SendMimeQ(const char*, const char*, const char*) {
  return impl_->queueRefused("SendMimeQ");
}

}  // namespace kelvado
