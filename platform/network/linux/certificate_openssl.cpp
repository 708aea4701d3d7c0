// Reads a certificate by OpenSSL; see platform/network/certificate.h.
#include <memory>

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include "base/hex_digit.h"
#include "base/text.h"
#include "platform/network/certificate.h"
#include "platform/system/release.h"

namespace platform {
namespace {

using Certificate = std::unique_ptr<X509, Release<X509_free>>;
using Memory = std::unique_ptr<BIO, Release<BIO_free_all>>;
using Names = std::unique_ptr<GENERAL_NAMES, Release<GENERAL_NAMES_free>>;

std::string textOf(const X509_NAME* name) {
  const Memory out(BIO_new(BIO_s_mem()));
  constexpr unsigned long kUtf8OneLine = XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB;
  if (out == nullptr || X509_NAME_print_ex(out.get(), name, 0, kUtf8OneLine) < 0) return {};
  char* data = nullptr;
  const long size = BIO_get_mem_data(out.get(), &data);
  return base::loggableLine({data, static_cast<std::size_t>(size)});
}

std::string_view bytesOf(const ASN1_STRING* text) {
  return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(text)),
          static_cast<std::size_t>(ASN1_STRING_length(text))};
}

std::string addressText(std::string_view bytes) {
  char text[INET6_ADDRSTRLEN] = "";
  inet_ntop(bytes.size() == 4 ? AF_INET : AF_INET6, bytes.data(), text, sizeof text);
  return text;
}

std::vector<std::string> hostNames(const X509* certificate) {
  std::vector<std::string> found;
  const Names names(static_cast<GENERAL_NAMES*>(
      X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
  for (int i = 0; i < sk_GENERAL_NAME_num(names.get()); ++i) {
    const GENERAL_NAME* name = sk_GENERAL_NAME_value(names.get(), i);
    if (name->type == GEN_DNS) found.push_back(base::loggableLine(bytesOf(name->d.dNSName)));
    if (name->type != GEN_IPADD) continue;
    const std::string_view address = bytesOf(name->d.iPAddress);
    if (address.size() == 4 || address.size() == 16) found.push_back(addressText(address));
  }
  const X509_NAME* subject = X509_get_subject_name(certificate);
  const int common = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
  if (found.empty() && common >= 0) {
    const ASN1_STRING* name = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, common));
    found.push_back(base::loggableLine(bytesOf(name)));
  }
  return found;
}

std::int64_t fileTimeOf(const ASN1_TIME* time) {
  constexpr std::int64_t kDaysTo1970 = 134774;
  constexpr std::int64_t kSecondsPerDay = 86400;
  constexpr std::int64_t kFileTimePerSecond = 10'000'000;
  const std::unique_ptr<ASN1_TIME, Release<ASN1_TIME_free>> epoch(ASN1_TIME_set(nullptr, 0));
  int days = 0;
  int seconds = 0;
  if (ASN1_TIME_diff(&days, &seconds, epoch.get(), time) != 1) return 0;
  return ((kDaysTo1970 + days) * kSecondsPerDay + seconds) * kFileTimePerSecond;
}

std::string fingerprintOf(const X509* certificate) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  if (X509_digest(certificate, EVP_sha256(), digest, &size) != 1) return {};
  std::string text;
  for (unsigned i = 0; i < size; ++i) {
    if (i > 0) text += ':';
    text += base::kHexDigits[digest[i] >> 4U];
    text += base::kHexDigits[digest[i] & 15U];
  }
  return text;
}

}  // namespace

std::optional<CertificateFacts> describeCertificate(const std::string& pem) {
  const Memory in(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  const Certificate certificate(PEM_read_bio_X509(in.get(), nullptr, nullptr, nullptr));
  ERR_clear_error();
  if (certificate == nullptr) return std::nullopt;
  const X509* const read = certificate.get();
  return CertificateFacts{textOf(X509_get_subject_name(read)),
                          textOf(X509_get_issuer_name(read)),
                          hostNames(read),
                          fileTimeOf(X509_get0_notBefore(read)),
                          fileTimeOf(X509_get0_notAfter(read)),
                          fingerprintOf(read)};
}

}  // namespace platform
