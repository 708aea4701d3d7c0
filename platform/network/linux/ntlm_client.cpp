// NTLM by GSSAPI: the mechanism is a plug-in of the GSSAPI library, found when it is installed. A
// system without it has no NTLM; nothing else changes.
#include <gssapi/gssapi.h>
#include <gssapi/gssapi_ext.h>

#include "platform/network/linux/ntlm_challenge.h"
#include "platform/network/security_package.h"

namespace platform {
namespace {

// 1.3.6.1.4.1.311.2.2.10
char kNtlmOidBytes[] = "\x2b\x06\x01\x04\x01\x82\x37\x02\x02\x0a";
gss_OID_desc kNtlm = {sizeof kNtlmOidBytes - 1, kNtlmOidBytes};

gss_buffer_desc bufferOf(std::string_view text) {
  return {text.size(), const_cast<char*>(text.data())};  // GSSAPI only reads its inputs
}

SspiStatus statusOf(OM_uint32 major) {
  if (major == GSS_S_COMPLETE) return kSecOk;
  if (major == GSS_S_CONTINUE_NEEDED) return kSecContinueNeeded;
  switch (major & (0xFFU << GSS_C_ROUTINE_ERROR_OFFSET)) {
    case GSS_S_BAD_MECH:
    case GSS_S_UNAVAILABLE:
      return kSecPackageNotFound;
    case GSS_S_BAD_NAME:
    case GSS_S_BAD_NAMETYPE:
      return kSecUnknownCredentials;
    case GSS_S_NO_CRED:
    case GSS_S_DEFECTIVE_CREDENTIAL:
    case GSS_S_CREDENTIALS_EXPIRED:
      return kSecNoCredentials;
    case GSS_S_DEFECTIVE_TOKEN:
    case GSS_S_BAD_SIG:
      return kSecInvalidToken;
    case GSS_S_NO_CONTEXT:
      return kSecInvalidHandle;
    case GSS_S_UNAUTHORIZED:
      return kSecLogonDenied;
    default:
      return kSecInternalError;
  }
}

class Name {
 public:
  Name() = default;
  ~Name() {
    OM_uint32 minor = 0;
    gss_release_name(&minor, &handle);
  }
  Name(const Name&) = delete;
  Name& operator=(const Name&) = delete;

  OM_uint32 import(std::string_view text, gss_OID type) {
    gss_buffer_desc buffer = bufferOf(text);
    OM_uint32 minor = 0;
    return gss_import_name(&minor, &buffer, type, &handle);
  }

  gss_name_t handle = GSS_C_NO_NAME;
};

class GssNtlmClient final : public NtlmClient {
 public:
  ~GssNtlmClient() override {
    OM_uint32 minor = 0;
    gss_delete_sec_context(&minor, &context_, GSS_C_NO_BUFFER);
    gss_release_cred(&minor, &credentials_);
  }

  SspiStatus acquire(const NtlmCredentials& credentials, const std::string& host) {
    const OM_uint32 major = server_.import("smtp@" + host, GSS_C_NT_HOSTBASED_SERVICE);
    if (GSS_ERROR(major)) return statusOf(major);
    channelBinding_ = credentials.channelBinding;
    return credentials.user.empty() ? acquireDefault() : acquireUser(credentials);
  }

  SspiStatus step(std::string_view in, std::string& out) override {
    const bool first = context_ == GSS_C_NO_CONTEXT;
    // The plug-in is crashed by some tokens that are no challenge.
    if (!first && !isNtlmChallenge(in)) return kSecInvalidToken;
    gss_buffer_desc token = bufferOf(in);
    gss_buffer_desc answer = GSS_C_EMPTY_BUFFER;
    gss_channel_bindings_struct binding = {};
    binding.application_data = bufferOf(channelBinding_);
    OM_uint32 minor = 0;
    const OM_uint32 major = gss_init_sec_context(
        &minor, credentials_, &context_, server_.handle, &kNtlm, 0, GSS_C_INDEFINITE,
        channelBinding_.empty() ? GSS_C_NO_CHANNEL_BINDINGS : &binding,
        first ? GSS_C_NO_BUFFER : &token, nullptr, &answer, nullptr, nullptr);
    out.assign(static_cast<const char*>(answer.value), answer.length);
    gss_release_buffer(&minor, &answer);
    return statusOf(major);
  }

 private:
  SspiStatus acquireDefault() {
    gss_OID_set_desc mechanisms = {1, &kNtlm};
    OM_uint32 minor = 0;
    return statusOf(gss_acquire_cred(&minor, GSS_C_NO_NAME, GSS_C_INDEFINITE, &mechanisms,
                                     GSS_C_INITIATE, &credentials_, nullptr, nullptr));
  }

  SspiStatus acquireUser(const NtlmCredentials& credentials) {
    const std::string text = credentials.domain.empty()
                                 ? credentials.user
                                 : credentials.domain + "\\" + credentials.user;
    Name user;
    const OM_uint32 major = user.import(text, GSS_C_NT_USER_NAME);
    if (GSS_ERROR(major)) return statusOf(major);
    gss_buffer_desc password = bufferOf(credentials.password);
    gss_OID_set_desc mechanisms = {1, &kNtlm};
    OM_uint32 minor = 0;
    return statusOf(gss_acquire_cred_with_password(&minor, user.handle, &password, GSS_C_INDEFINITE,
                                                   &mechanisms, GSS_C_INITIATE, &credentials_,
                                                   nullptr, nullptr));
  }

  Name server_;
  std::string channelBinding_;
  gss_cred_id_t credentials_ = GSS_C_NO_CREDENTIAL;
  gss_ctx_id_t context_ = GSS_C_NO_CONTEXT;
};

}  // namespace

std::unique_ptr<NtlmClient> createNtlmClient(const NtlmCredentials& credentials,
                                             const std::string& host, SspiStatus& status) {
  auto client = std::make_unique<GssNtlmClient>();
  status = client->acquire(credentials, host);
  if (status != kSecOk) return nullptr;
  return client;
}

}  // namespace platform
