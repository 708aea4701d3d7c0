#define CERT_CHAIN_PARA_HAS_EXTRA_FIELDS
#include "platform/network/windows/certificates.h"

#include <vector>

#include "base/format_text.h"
#include "base/hex_digit.h"
#include "base/text.h"
#include "base/unicode.h"
#include "platform/network/certificate.h"
#include "platform/network/windows/status_text.h"
#include "platform/system/files.h"
#include "platform/text/windows/wide_text.h"

namespace platform {
namespace {

constexpr std::size_t kMaxPemBytes = 65536;  // a certificate with its chain takes a few kilobytes
constexpr DWORD kRootFetchMs = 5000;         // a pass must not hang on the system's root list
constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

struct ChainDeleter {
  void operator()(const CERT_CHAIN_CONTEXT* chain) const { CertFreeCertificateChain(chain); }
};
using Chain = std::unique_ptr<const CERT_CHAIN_CONTEXT, ChainDeleter>;

struct StoreCloser {
  void operator()(void* store) const { CertCloseStore(store, 0); }
};
using Store = std::unique_ptr<void, StoreCloser>;

// "CN" of the subject, or of the issuer with CERT_NAME_ISSUER_FLAG.
std::string commonName(const CERT_CONTEXT& certificate, DWORD flags) {
  char oid[] = szOID_COMMON_NAME;
  const DWORD size = CertGetNameStringW(&certificate, CERT_NAME_ATTR_TYPE, flags, oid, nullptr, 0);
  std::vector<wchar_t> text(size + 1);
  CertGetNameStringW(&certificate, CERT_NAME_ATTR_TYPE, flags, oid, text.data(), size);
  return base::utf16ToUtf8(fromWide(text.data()));
}

std::string pemOf(const CERT_CONTEXT& certificate) {
  DWORD size = 0;
  CryptBinaryToStringA(certificate.pbCertEncoded, certificate.cbCertEncoded,
                       CRYPT_STRING_BASE64HEADER, nullptr, &size);
  std::string pem(size, '\0');
  if (CryptBinaryToStringA(certificate.pbCertEncoded, certificate.cbCertEncoded,
                           CRYPT_STRING_BASE64HEADER, pem.data(), &size) == 0) {
    return {};
  }
  pem.resize(size);  // without the NUL now
  return pem;
}

Chain buildChain(const CERT_CONTEXT& certificate) {
  char serverAuthentication[] = szOID_PKIX_KP_SERVER_AUTH;
  LPSTR usages[] = {serverAuthentication};
  CERT_CHAIN_PARA parameters{};
  parameters.cbSize = sizeof parameters;
  parameters.dwUrlRetrievalTimeout = kRootFetchMs;
  parameters.RequestedUsage.dwType = USAGE_MATCH_TYPE_OR;
  parameters.RequestedUsage.Usage.cUsageIdentifier = 1;
  parameters.RequestedUsage.Usage.rgpszUsageIdentifier = usages;
  const CERT_CHAIN_CONTEXT* chain = nullptr;
  // A trusted root that this machine has not seen yet is fetched as the system does for every
  // program. No address that stands in the certificate is asked for others: nobody has checked it
  // yet. Without a flag for it, no revocation list is fetched either.
  CertGetCertificateChain(nullptr, &certificate, nullptr, certificate.hCertStore, &parameters,
                          CERT_CHAIN_DISABLE_AIA, nullptr, &chain);
  return Chain(chain);
}

// Of a call that failed: never 0, which would stand for a certificate that is trusted.
DWORD lastRefusal() {
  const DWORD error = GetLastError();
  return error != ERROR_SUCCESS ? error : static_cast<DWORD>(CERT_E_CHAINING);
}

// 0 when the chain is good for a server of this name, or the reason.
DWORD checkChain(const CERT_CHAIN_CONTEXT& chain, const std::string& host) {
  // Some systems let the policy below pass without the chain's end.
  if ((chain.TrustStatus.dwErrorStatus & CERT_TRUST_IS_PARTIAL_CHAIN) != 0) {
    return static_cast<DWORD>(CERT_E_CHAINING);
  }
  std::wstring name = toWide(base::utf8ToUtf16(host));
  SSL_EXTRA_CERT_CHAIN_POLICY_PARA server{};
  server.cbSize = sizeof server;
  server.dwAuthType = AUTHTYPE_SERVER;
  server.pwszServerName = name.data();
  CERT_CHAIN_POLICY_PARA parameters{};
  parameters.cbSize = sizeof parameters;
  parameters.pvExtraPolicyPara = &server;
  CERT_CHAIN_POLICY_STATUS status{};
  status.cbSize = sizeof status;
  if (CertVerifyCertificateChainPolicy(CERT_CHAIN_POLICY_SSL, &chain, &parameters, &status) == 0) {
    return lastRefusal();
  }
  return status.dwError;
}

std::string distinguishedName(CERT_NAME_BLOB& name) {
  const DWORD size = CertNameToStrW(kEncoding, &name, CERT_X500_NAME_STR, nullptr, 0);
  std::vector<wchar_t> text(size + 1);
  CertNameToStrW(kEncoding, &name, CERT_X500_NAME_STR, text.data(), size);
  return base::utf16ToUtf8(fromWide(text.data()));
}

// Null when the text holds none.
Certificate firstCertificate(const std::string& pem) {
  std::vector<BYTE> bytes(pem.size());
  DWORD size = static_cast<DWORD>(bytes.size());
  if (CryptStringToBinaryA(pem.data(), static_cast<DWORD>(pem.size()), CRYPT_STRING_BASE64HEADER,
                           bytes.data(), &size, nullptr, nullptr) == 0) {
    return nullptr;
  }
  return Certificate(CertCreateCertificateContext(kEncoding, bytes.data(), size));
}

std::string hostOf(const CERT_ALT_NAME_ENTRY& name) {
  if (name.dwAltNameChoice == CERT_ALT_NAME_DNS_NAME) {
    return base::loggableLine(base::utf16ToUtf8(fromWide(name.pwszDNSName)));
  }
  constexpr DWORD kIpv4Bytes = 4;
  const CRYPT_DATA_BLOB& address = name.IPAddress;
  if (name.dwAltNameChoice != CERT_ALT_NAME_IP_ADDRESS || address.cbData != kIpv4Bytes) return {};
  const BYTE* const bytes = address.pbData;
  return base::formatText("%u.%u.%u.%u", unsigned{bytes[0]}, unsigned{bytes[1]}, unsigned{bytes[2]},
                          unsigned{bytes[3]});
}

std::vector<std::string> hostNames(const CERT_CONTEXT& certificate) {
  std::vector<std::string> found;
  const CERT_INFO& info = *certificate.pCertInfo;
  const CERT_EXTENSION* extension =
      CertFindExtension(szOID_SUBJECT_ALT_NAME2, info.cExtension, info.rgExtension);
  DWORD size = 0;
  if (extension != nullptr &&
      CryptDecodeObjectEx(kEncoding, X509_ALTERNATE_NAME, extension->Value.pbData,
                          extension->Value.cbData, 0, nullptr, nullptr, &size) != 0) {
    std::vector<BYTE> buffer(size);
    CryptDecodeObjectEx(kEncoding, X509_ALTERNATE_NAME, extension->Value.pbData,
                        extension->Value.cbData, 0, nullptr, buffer.data(), &size);
    const auto* names = reinterpret_cast<const CERT_ALT_NAME_INFO*>(buffer.data());
    for (DWORD i = 0; i < names->cAltEntry; ++i) {
      const std::string host = hostOf(names->rgAltEntry[i]);
      if (!host.empty()) found.push_back(host);
    }
  }
  const std::string common = base::loggableLine(commonName(certificate, 0));
  if (found.empty() && !common.empty()) found.push_back(common);
  return found;
}

std::int64_t fileTimeOf(const FILETIME& time) {
  return static_cast<std::int64_t>(std::uint64_t{time.dwHighDateTime} << 32U | time.dwLowDateTime);
}

std::string fingerprintOf(const CERT_CONTEXT& certificate) {
  BYTE digest[32];
  DWORD size = sizeof digest;
  if (CryptHashCertificate(0, CALG_SHA_256, 0, certificate.pbCertEncoded, certificate.cbCertEncoded,
                           digest, &size) == 0) {
    return {};
  }
  std::string text;
  for (DWORD i = 0; i < size; ++i) {
    if (i > 0) text += ':';
    text += base::kHexDigits[digest[i] >> 4U];
    text += base::kHexDigits[digest[i] & 15U];
  }
  return text;
}

}  // namespace

std::string subjectName(const CERT_CONTEXT& certificate) {
  return distinguishedName(certificate.pCertInfo->Subject);
}

std::optional<CertificateFacts> describeCertificate(const std::string& pem) {
  const Certificate certificate = firstCertificate(pem);
  if (certificate == nullptr) return std::nullopt;
  CERT_INFO& info = *certificate->pCertInfo;
  return CertificateFacts{base::loggableLine(distinguishedName(info.Subject)),
                          base::loggableLine(distinguishedName(info.Issuer)),
                          hostNames(*certificate),
                          fileTimeOf(info.NotBefore),
                          fileTimeOf(info.NotAfter),
                          fingerprintOf(*certificate)};
}

PeerCertificate describeServerCertificate(const CERT_CONTEXT& certificate,
                                          const std::string& host) {
  PeerCertificate result;
  result.pem = pemOf(certificate);
  result.subjectCn = commonName(certificate, 0);
  result.issuerCn = commonName(certificate, CERT_NAME_ISSUER_FLAG);
  const Chain chain = buildChain(certificate);
  const DWORD problem = chain == nullptr ? lastRefusal() : checkChain(*chain, host);
  result.verified = problem == ERROR_SUCCESS;
  if (!result.verified) result.problem = statusText(problem);
  return result;
}

Certificate findClientCertificate(const std::string& pemFile, std::string& error) {
  std::string pem;
  if (!readWholeFile(pemFile, pem, kMaxPemBytes)) {
    error = pemFile + " cannot be read";
    return nullptr;
  }
  const Certificate wanted = firstCertificate(pem);
  if (wanted == nullptr) {
    error = pemFile + " does not begin with a certificate";
    return nullptr;
  }
  const Store store(CertOpenSystemStoreW(0, L"MY"));
  Certificate found;
  if (store != nullptr) {
    found.reset(CertFindCertificateInStore(store.get(), kEncoding, 0, CERT_FIND_EXISTING,
                                           wanted.get(), nullptr));
  }
  if (found == nullptr) error = "the certificate of " + pemFile + " is not in the store \"MY\"";
  return found;
}

}  // namespace platform
