// A security.dll that records what the system's own is asked, and plays what that does not do here:
// systems that do not know SCH_CREDENTIALS (fault.txt names it), messages after the handshake, and
// an NTLM that takes any log-in.
#define SECURITY_WIN32
#include <windows.h>
#include <security.h>
#include <subauth.h>
#define SCHANNEL_USE_BLACKLISTS
#include <cstddef>

#include <schannel.h>

#include "base/format_text.h"
#include "tests/e2e/wine/recorded_domain.h"

using namespace stand_in;

namespace {

constexpr ULONG_PTR kNtlm = 0x4E544C4D;  // in place of the handles

const SecurityFunctionTableA& real() {
  static const auto* table = reinterpret_cast<INIT_SECURITY_INTERFACE_A>(reinterpret_cast<void*>(
      GetProcAddress(LoadLibraryA("secur32.dll"), "InitSecurityInterfaceA")))();
  return *table;
}

int records = 0;          // that were to be decrypted
bool handshakes = false;  // SEC_I_RENEGOTIATE was said, and the context is to be stepped
char ntlmToken[] = "NTLMSSP";

struct Bindings {
  SEC_CHANNEL_BINDINGS header{};
  char data[28] = "tls-server-end-point:digest";
} bindings;

SECURITY_STATUS SEC_ENTRY acquire(SEC_CHAR* principal, SEC_CHAR* package, ULONG use, void* logon,
                                  void* data, SEC_GET_KEY_FN key, void* keyArgument,
                                  PCredHandle handle, PTimeStamp expiry) {
  if (std::string_view(package) == "NTLM") {
    *handle = {kNtlm, kNtlm};
    return SEC_E_OK;
  }
  const bool newer = *static_cast<DWORD*>(data) == SCH_CREDENTIALS_VERSION;
  const auto* credentials = static_cast<SCH_CREDENTIALS*>(data);
  const auto* older = static_cast<SCHANNEL_CRED*>(data);
  const std::string flags = base::formatText(
      " flags=%lx protocols=%s%lx", newer ? credentials->dwFlags : older->dwFlags,
      newer ? "not " : "",
      newer ? credentials->pTlsParameters->grbitDisabledProtocols : older->grbitEnabledProtocols);
  if (!begin(newer ? "SCH_CREDENTIALS" : "SCHANNEL_CRED", flags)) return SEC_E_UNKNOWN_CREDENTIALS;
  return real().AcquireCredentialsHandleA(principal, package, use, logon, data, key, keyArgument,
                                          handle, expiry);
}

SECURITY_STATUS SEC_ENTRY freeCredentials(PCredHandle handle) {
  return handle->dwLower == kNtlm ? SEC_E_OK : real().FreeCredentialsHandle(handle);
}

SECURITY_STATUS ntlmStep(bool first, const SEC_CHAR* target, const SecBufferDesc* in,
                         CtxtHandle& made, const SecBufferDesc& out) {
  std::string binding;
  for (ULONG i = 0; in != nullptr && i < in->cBuffers; ++i) {
    if (in->pBuffers[i].BufferType != SECBUFFER_CHANNEL_BINDINGS) continue;
    const auto* native = static_cast<const SEC_CHANNEL_BINDINGS*>(in->pBuffers[i].pvBuffer);
    binding =
        " " + std::string(reinterpret_cast<const char*>(native) + native->dwApplicationDataOffset,
                          native->cbApplicationDataLength);
  }
  record(std::string("NTLM ") + (first ? "first " : "last ") + target + binding);
  made = {kNtlm, kNtlm};
  out.pBuffers[0] = {sizeof ntlmToken, SECBUFFER_TOKEN, ntlmToken};
  return first ? SEC_I_CONTINUE_NEEDED : SEC_E_OK;
}

SECURITY_STATUS SEC_ENTRY initialise(PCredHandle credentials, PCtxtHandle context, SEC_CHAR* target,
                                     ULONG flags, ULONG reserved, ULONG order, PSecBufferDesc in,
                                     ULONG reserved2, PCtxtHandle made, PSecBufferDesc out,
                                     PULONG granted, PTimeStamp expiry) {
  if (credentials->dwLower == kNtlm) return ntlmStep(context == nullptr, target, in, *made, *out);
  if (handshakes) {
    handshakes = false;
    record("step after the handshake, with ", in == nullptr ? "nothing" : "a message");
    if (in != nullptr) in->pBuffers[1] = {in->pBuffers[0].cbBuffer, SECBUFFER_EXTRA, nullptr};
    return SEC_E_OK;
  }
  return real().InitializeSecurityContextA(credentials, context, target, flags, reserved, order, in,
                                           reserved2, made, out, granted, expiry);
}

SECURITY_STATUS SEC_ENTRY deleteContext(PCtxtHandle context) {
  return context->dwLower == kNtlm ? SEC_E_OK : real().DeleteSecurityContext(context);
}

SECURITY_STATUS SEC_ENTRY freeBuffer(void* buffer) {
  return buffer == ntlmToken || buffer == &bindings ? SEC_E_OK : real().FreeContextBuffer(buffer);
}

SECURITY_STATUS SEC_ENTRY query(PCtxtHandle context, ULONG attribute, void* out) {
  if (attribute != SECPKG_ATTR_ENDPOINT_BINDINGS) {
    return real().QueryContextAttributesA(context, attribute, out);
  }
  bindings.header.dwApplicationDataOffset = offsetof(Bindings, data);
  bindings.header.cbApplicationDataLength = sizeof bindings.data - 1;
  *static_cast<SecPkgContext_Bindings*>(out) = {sizeof bindings, &bindings.header};
  return SEC_E_OK;
}

// The first record is, as under TLS 1.3, said to be a message for the handshake; with the second
// one comes, as under TLS 1.2, the wish for another handshake.
SECURITY_STATUS SEC_ENTRY decrypt(PCtxtHandle context, PSecBufferDesc message, ULONG number,
                                  PULONG quality) {
  if (records == 0) {
    ++records;
    handshakes = true;
    message->pBuffers[1] = {message->pBuffers[0].cbBuffer, SECBUFFER_EXTRA,
                            message->pBuffers[0].pvBuffer};
    message->pBuffers[0].BufferType = SECBUFFER_EMPTY;
    return SEC_I_RENEGOTIATE;
  }
  const SECURITY_STATUS status = real().DecryptMessage(context, message, number, quality);
  handshakes = status == SEC_E_OK && ++records == 3;
  return handshakes ? SEC_I_RENEGOTIATE : status;
}

}  // namespace

EXPORTED PSecurityFunctionTableA SEC_ENTRY InitSecurityInterfaceA() {
  static SecurityFunctionTableA table = real();
  table.AcquireCredentialsHandleA = acquire;
  table.FreeCredentialsHandle = freeCredentials;
  table.InitializeSecurityContextA = initialise;
  table.DeleteSecurityContext = deleteContext;
  table.FreeContextBuffer = freeBuffer;
  table.QueryContextAttributesA = query;
  table.DecryptMessage = decrypt;
  return &table;
}
