// TLS behind platform/network/security_package.h, by the Schannel package of the system.
#include <memory>
#include <mutex>
#include <utility>

#include <windows.h>
#include <subauth.h>
#define SCHANNEL_USE_BLACKLISTS  // for SCH_CREDENTIALS
#include <schannel.h>

#include "platform/network/security_package.h"
#include "platform/network/windows/certificates.h"
#include "platform/network/windows/sspi.h"
#include "platform/network/windows/status_text.h"

namespace platform {
namespace {

constexpr ULONG kRequestFlags = ISC_REQ_SEQUENCE_DETECT | ISC_REQ_REPLAY_DETECT |
                                ISC_REQ_CONFIDENTIALITY | ISC_REQ_ALLOCATE_MEMORY |
                                ISC_REQ_EXTENDED_ERROR | ISC_REQ_STREAM;
static_assert(kRequestFlags == 0xC11C);
constexpr DWORD kProtocolsTooOld =
    SP_PROT_SSL2_CLIENT | SP_PROT_SSL3_CLIENT | SP_PROT_TLS1_0_CLIENT | SP_PROT_TLS1_1_CLIENT;

// The handle of a client's credentials.
class Credentials {
 public:
  explicit Credentials(const SecurityFunctionTableA& functions) : functions_(functions) {}
  ~Credentials() {
    if (acquired_) functions_.FreeCredentialsHandle(&handle_);
  }
  Credentials(const Credentials&) = delete;
  Credentials& operator=(const Credentials&) = delete;

  // Null `certificate`: the client stays anonymous.
  SECURITY_STATUS acquire(const CERT_CONTEXT* certificate) {
    if (certificate != nullptr) certificateName_ = subjectName(*certificate);
    // TLS 1.3 takes the newer structure, which systems without TLS 1.3 do not know.
    TLS_PARAMETERS tooOld{};
    tooOld.grbitDisabledProtocols = kProtocolsTooOld;
    SCH_CREDENTIALS request{};
    request.dwVersion = SCH_CREDENTIALS_VERSION;
    request.cTlsParameters = 1;
    request.pTlsParameters = &tooOld;
    if (const SECURITY_STATUS status = acquireWith(request, certificate); status == SEC_E_OK) {
      return status;
    }
    SCHANNEL_CRED olderRequest{};
    olderRequest.dwVersion = SCHANNEL_CRED_VERSION;
    olderRequest.grbitEnabledProtocols = SP_PROT_TLS1_2_CLIENT;
    return acquireWith(olderRequest, certificate);
  }

  CredHandle* get() { return &handle_; }
  const std::string& certificateName() const { return certificateName_; }

 private:
  // `Request`: one of the two structures for credentials, with its version and protocols set.
  template <class Request>
  SECURITY_STATUS acquireWith(Request& request, const CERT_CONTEXT* certificate) {
    // The caller decides what a certificate that fails verification means.
    request.dwFlags =
        SCH_CRED_MANUAL_CRED_VALIDATION | SCH_CRED_NO_DEFAULT_CREDS | SCH_USE_STRONG_CRYPTO;
    request.cCreds = certificate != nullptr ? 1 : 0;
    request.paCred = certificate != nullptr ? &certificate : nullptr;
    char package[] = "schannel";
    TimeStamp expiry{};
    const SECURITY_STATUS status =
        functions_.AcquireCredentialsHandleA(nullptr, package, SECPKG_CRED_OUTBOUND, nullptr,
                                             &request, nullptr, nullptr, &handle_, &expiry);
    acquired_ = status == SEC_E_OK;
    return status;
  }

  const SecurityFunctionTableA& functions_;
  CredHandle handle_{};
  bool acquired_ = false;
  std::string certificateName_;
};

// Null with `error` in words.
std::shared_ptr<Credentials> makeCredentials(const SecurityFunctionTableA& functions,
                                             const CERT_CONTEXT* certificate, std::string& error) {
  auto credentials = std::make_shared<Credentials>(functions);
  const SECURITY_STATUS status = credentials->acquire(certificate);
  if (status == SEC_E_OK) return credentials;
  error = statusText(static_cast<std::uint32_t>(status));
  return nullptr;
}

// One handle for all anonymous clients: the system resumes sessions of the same handle and host.
std::shared_ptr<Credentials> anonymousCredentials(const SecurityFunctionTableA& functions,
                                                  std::string& error) {
  static std::mutex mutex;
  static std::shared_ptr<Credentials>* const shared = new std::shared_ptr<Credentials>;
  const std::lock_guard<std::mutex> lock(mutex);
  if (*shared == nullptr) *shared = makeCredentials(functions, nullptr, error);
  return *shared;
}

class SchannelStream final : public SecureStream {
 public:
  SchannelStream(const SecurityFunctionTableA& functions, std::shared_ptr<Credentials> credentials,
                 std::string host)
      : functions_(functions), credentials_(std::move(credentials)), host_(std::move(host)) {}
  ~SchannelStream() override {
    if (begun_) functions_.DeleteSecurityContext(&context_);
  }
  SchannelStream(const SchannelStream&) = delete;
  SchannelStream& operator=(const SchannelStream&) = delete;

  SecurityStatus step(std::string_view in, std::string& out, std::size_t& extra) override {
    std::string work(in);  // decrypted where it stands
    if (left_.size() <= work.size()) work.replace(0, left_.size(), left_);
    left_.clear();
    extra = work.size();
    for (;;) {
      const std::size_t before = extra;
      char* const rest = work.data() + work.size() - before;
      SECURITY_STATUS status = initialise(rest, before, out, extra);
      if (status == SEC_I_INCOMPLETE_CREDENTIALS) {
        // The server would like a client certificate; the second call goes on without one.
        status = initialise(rest, before, out, extra);
      }
      if (status == SEC_E_OK) return takeSizes();
      if (status == SEC_E_INCOMPLETE_MESSAGE) {
        extra = before;
        return SecurityStatus::Incomplete;
      }
      if (status != SEC_I_CONTINUE_NEEDED) return fail(status);
      // What is left may already be the next message: asking the peer for more could wait for ever.
      if (extra == 0 || extra == before) return SecurityStatus::ContinueNeeded;
    }
  }

  StreamSizes sizes() const override {
    return {sizes_.cbHeader, sizes_.cbTrailer, sizes_.cbMaximumMessage};
  }

  SecurityStatus encrypt(std::string_view plain, std::string& record) override {
    std::string work(sizes_.cbHeader, '\0');
    work += plain;
    work.resize(work.size() + sizes_.cbTrailer);
    char* const header = work.data();
    char* const data = header + sizes_.cbHeader;
    SecurityBuffers<4> message;
    message.set(0, SECBUFFER_STREAM_HEADER, header, sizes_.cbHeader);
    message.set(1, SECBUFFER_DATA, data, plain.size());
    message.set(2, SECBUFFER_STREAM_TRAILER, data + plain.size(), sizes_.cbTrailer);
    message.set(3, SECBUFFER_EMPTY, nullptr, 0);
    const SECURITY_STATUS status = functions_.EncryptMessage(&context_, 0, &message.description, 0);
    if (status != SEC_E_OK) return fail(status);
    // As long as the buffers say now: a cipher need not use all the room it asked for.
    for (unsigned i = 0; i < 3; ++i) {
      const SecBuffer& part = message.buffers[i];
      record.append(static_cast<const char*>(part.pvBuffer), part.cbBuffer);
    }
    return SecurityStatus::Ok;
  }

  SecurityStatus decrypt(std::string_view in, std::string& plain, std::string& /*out*/,
                         std::size_t& extra) override {
    std::string work(in);  // decrypted where it stands
    extra = work.size();
    while (extra > 0) {
      SecurityBuffers<4> message;
      message.set(0, SECBUFFER_DATA, work.data() + work.size() - extra, extra);
      const SECURITY_STATUS status =
          functions_.DecryptMessage(&context_, &message.description, 0, nullptr);
      if (status == SEC_E_INCOMPLETE_MESSAGE) return SecurityStatus::Incomplete;
      if (status != SEC_E_OK && status != SEC_I_RENEGOTIATE && status != SEC_I_CONTEXT_EXPIRED) {
        return fail(status);
      }
      const SecBuffer* data = message.find(SECBUFFER_DATA);
      if (data != nullptr) plain.append(static_cast<const char*>(data->pvBuffer), data->cbBuffer);
      const SecBuffer* rest = message.find(SECBUFFER_EXTRA);
      extra = rest == nullptr ? 0 : rest->cbBuffer;
      if (status == SEC_I_RENEGOTIATE) {
        left_ = work.substr(work.size() - extra);
        return SecurityStatus::Renegotiate;
      }
      if (status == SEC_I_CONTEXT_EXPIRED) return SecurityStatus::ContextExpired;
    }
    return SecurityStatus::Incomplete;
  }

  CloseNotify shutdown(std::string& out) override {
    DWORD token = SCHANNEL_SHUTDOWN;
    SecurityBuffers<1> control;
    control.set(0, SECBUFFER_TOKEN, &token, sizeof token);
    if (FAILED(functions_.ApplyControlToken(&context_, &control.description))) {
      return CloseNotify::NotAccepted;
    }
    std::size_t extra = 0;
    return FAILED(initialise(nullptr, 0, out, extra)) ? CloseNotify::NotMade : CloseNotify::Made;
  }

  bool peerCertificate(PeerCertificate& certificate) const override {
    CERT_CONTEXT* remote = nullptr;
    const SECURITY_STATUS status = functions_.QueryContextAttributesA(
        const_cast<CtxtHandle*>(&context_), SECPKG_ATTR_REMOTE_CERT_CONTEXT, &remote);
    const Certificate owner(remote);
    if (status != SEC_E_OK || remote == nullptr) return false;
    certificate = describeServerCertificate(*remote, host_);
    certificate.endPointBinding = endPointBinding();
    return true;
  }

  std::string clientCertificateName() const override { return credentials_->certificateName(); }

  std::string failureText() const override { return failure_; }

 private:
  // InitializeSecurityContext. An output token, also that of a failure, is appended to `out`;
  // `extra` is how much at the end of the input was not consumed.
  SECURITY_STATUS initialise(char* in, std::size_t size, std::string& out, std::size_t& extra) {
    SecurityBuffers<2> input;
    input.set(0, SECBUFFER_TOKEN, in, size);
    input.set(1, SECBUFFER_EMPTY, nullptr, 0);
    SecurityBuffers<1> output;
    output.set(0, SECBUFFER_TOKEN, nullptr, 0);
    ULONG attributes = 0;
    TimeStamp expiry{};
    const SECURITY_STATUS status = functions_.InitializeSecurityContextA(
        credentials_->get(), begun_ ? &context_ : nullptr, host_.data(), kRequestFlags, 0, 0,
        size == 0 ? nullptr : &input.description, 0, &context_, &output.description, &attributes,
        &expiry);
    if (!FAILED(status)) begun_ = true;
    const SecBuffer& token = output.buffers[0];
    if (token.pvBuffer != nullptr) {
      out.append(static_cast<const char*>(token.pvBuffer), token.cbBuffer);
      functions_.FreeContextBuffer(token.pvBuffer);
    }
    const SecBuffer* rest = input.find(SECBUFFER_EXTRA);
    extra = rest == nullptr ? 0 : rest->cbBuffer;
    return status;
  }

  // Empty where the system has none to give.
  std::string endPointBinding() const {
    SecPkgContext_Bindings native{};
    const SECURITY_STATUS status = functions_.QueryContextAttributesA(
        const_cast<CtxtHandle*>(&context_), SECPKG_ATTR_ENDPOINT_BINDINGS, &native);
    if (status != SEC_E_OK || native.Bindings == nullptr) return {};
    const SEC_CHANNEL_BINDINGS& bindings = *native.Bindings;
    std::string data(reinterpret_cast<const char*>(&bindings) + bindings.dwApplicationDataOffset,
                     bindings.cbApplicationDataLength);
    functions_.FreeContextBuffer(native.Bindings);
    return data;
  }

  SecurityStatus takeSizes() {
    const SECURITY_STATUS status =
        functions_.QueryContextAttributesA(&context_, SECPKG_ATTR_STREAM_SIZES, &sizes_);
    return status == SEC_E_OK ? SecurityStatus::Ok : fail(status);
  }

  SecurityStatus fail(SECURITY_STATUS status) {
    failure_ = statusText(static_cast<std::uint32_t>(status));
    return SecurityStatus::Failed;
  }

  const SecurityFunctionTableA& functions_;
  std::shared_ptr<Credentials> credentials_;
  std::string host_;
  CtxtHandle context_{};
  bool begun_ = false;  // context_ is one
  SecPkgContext_StreamSizes sizes_{};
  // What DecryptMessage left for the next step, as it left it: a message of TLS 1.3 that follows
  // the handshake may have been decrypted where it stood. The caller has the bytes as they arrived.
  std::string left_;
  std::string failure_;
};

}  // namespace

std::unique_ptr<SecureStream> createTlsClient(const TlsClientOptions& options, std::string& error) {
  const SecurityFunctionTableA* functions = securityFunctions(error);
  if (functions == nullptr) return nullptr;
  std::shared_ptr<Credentials> credentials;
  if (options.clientCertificate.empty()) {
    credentials = anonymousCredentials(*functions, error);
  } else {
    const Certificate certificate = findClientCertificate(options.clientCertificate, error);
    if (certificate == nullptr) return nullptr;
    credentials = makeCredentials(*functions, certificate.get(), error);
  }
  if (credentials == nullptr) return nullptr;
  return std::make_unique<SchannelStream>(*functions, std::move(credentials), options.host);
}

}  // namespace platform
