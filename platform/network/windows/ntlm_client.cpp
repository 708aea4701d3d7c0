// NTLM by the SSPI package of that name.
#include <cstring>
#include <utility>

#include "base/unicode.h"
#include "platform/network/security_package.h"
#include "platform/network/windows/sspi.h"
#include "platform/text/windows/wide_text.h"

namespace platform {
namespace {

constexpr ULONG kRequestFlags = ISC_REQ_ALLOCATE_MEMORY | ISC_REQ_CONNECTION;

class SspiNtlmClient final : public NtlmClient {
 public:
  // `service`: the name under which the server's account knows what is logged in to.
  SspiNtlmClient(const SecurityFunctionTableA& functions, std::string service)
      : functions_(functions), service_(std::move(service)) {}
  ~SspiNtlmClient() override {
    if (started_) functions_.DeleteSecurityContext(&context_);
    if (acquired_) functions_.FreeCredentialsHandle(&credentials_);
  }

  SspiStatus acquire(const NtlmCredentials& given) {
    std::wstring user = toWide(base::utf8ToUtf16(given.user));
    std::wstring domain = toWide(base::utf8ToUtf16(given.domain));
    std::wstring password = toWide(base::utf8ToUtf16(given.password));
    // The identity says by its flag that it is wide, also to the functions for narrow text.
    SEC_WINNT_AUTH_IDENTITY_W identity{};
    identity.User = reinterpret_cast<unsigned short*>(user.data());
    identity.UserLength = static_cast<ULONG>(user.size());
    identity.Domain = reinterpret_cast<unsigned short*>(domain.data());
    identity.DomainLength = static_cast<ULONG>(domain.size());
    identity.Password = reinterpret_cast<unsigned short*>(password.data());
    identity.PasswordLength = static_cast<ULONG>(password.size());
    identity.Flags = SEC_WINNT_AUTH_IDENTITY_UNICODE;
    char package[] = "NTLM";
    TimeStamp expiry{};
    const SECURITY_STATUS status = functions_.AcquireCredentialsHandleA(
        nullptr, package, SECPKG_CRED_OUTBOUND, nullptr, given.user.empty() ? nullptr : &identity,
        nullptr, nullptr, &credentials_, &expiry);
    SecureZeroMemory(password.data(), password.size() * sizeof(wchar_t));
    acquired_ = status == SEC_E_OK;
    if (!given.channelBinding.empty()) bindTo(given.channelBinding);
    return static_cast<SspiStatus>(status);
  }

  SspiStatus step(std::string_view in, std::string& out) override {
    SecurityBuffers<2> input;
    input.set(0, SECBUFFER_TOKEN, const_cast<char*>(in.data()), in.size());
    input.set(1, SECBUFFER_CHANNEL_BINDINGS, bindings_.data(), bindings_.size());
    input.description.cBuffers = bindings_.empty() ? 1 : 2;
    SecurityBuffers<1> output;
    output.set(0, SECBUFFER_TOKEN, nullptr, 0);
    ULONG granted = 0;
    TimeStamp expiry{};
    SECURITY_STATUS status = functions_.InitializeSecurityContextA(
        &credentials_, started_ ? &context_ : nullptr, service_.data(), kRequestFlags, 0,
        SECURITY_NATIVE_DREP, started_ ? &input.description : nullptr, 0, &context_,
        &output.description, &granted, &expiry);
    if (status >= 0) started_ = true;
    if (status == SEC_I_COMPLETE_NEEDED || status == SEC_I_COMPLETE_AND_CONTINUE) {
      const SECURITY_STATUS completed =
          functions_.CompleteAuthToken(&context_, &output.description);
      if (completed < 0) status = completed;
    }
    const SecBuffer& token = output.buffers[0];
    out.assign(static_cast<const char*>(token.pvBuffer), token.pvBuffer ? token.cbBuffer : 0);
    if (token.pvBuffer != nullptr) functions_.FreeContextBuffer(token.pvBuffer);
    return static_cast<SspiStatus>(status);
  }

 private:
  // The structure with the data behind it, as the package takes it.
  void bindTo(const std::string& data) {
    SEC_CHANNEL_BINDINGS header{};
    header.cbApplicationDataLength = static_cast<ULONG>(data.size());
    header.dwApplicationDataOffset = sizeof header;
    bindings_.resize(sizeof header);
    std::memcpy(bindings_.data(), &header, sizeof header);
    bindings_ += data;
  }

  const SecurityFunctionTableA& functions_;
  std::string service_;
  std::string bindings_;  // empty: the connection has no TLS
  CredHandle credentials_{};
  CtxtHandle context_{};
  bool acquired_ = false;
  bool started_ = false;
};

}  // namespace

std::unique_ptr<NtlmClient> createNtlmClient(const NtlmCredentials& credentials,
                                             const std::string& host, SspiStatus& status) {
  std::string error;
  const SecurityFunctionTableA* functions = securityFunctions(error);
  status = kSecPackageNotFound;
  if (functions == nullptr) return nullptr;
  auto client = std::make_unique<SspiNtlmClient>(*functions, "SMTP/" + host);
  status = client->acquire(credentials);
  if (status != kSecOk) return nullptr;
  return client;
}

}  // namespace platform
