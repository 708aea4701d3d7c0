#include "tests/support/tls_server.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

namespace test_support {
namespace {

struct Identity {
  EVP_PKEY* key = EVP_EC_gen("P-256");
  X509* certificate = X509_new();
};

void addExtension(X509* certificate, X509* issuer, int nid, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
}

// Signed by `issuer`, or by itself. Lives until the process ends, as everything here.
Identity makeIdentity(const char* commonName, const char* extensionValue, int extension,
                      const Identity* issuer) {
  static long serial = 0;
  Identity made;
  ASN1_INTEGER_set(X509_get_serialNumber(made.certificate), ++serial);
  X509_set_version(made.certificate, X509_VERSION_3);
  X509_gmtime_adj(X509_getm_notBefore(made.certificate), -3600);
  X509_gmtime_adj(X509_getm_notAfter(made.certificate), 3600);
  X509_set_pubkey(made.certificate, made.key);
  X509_NAME* name = X509_get_subject_name(made.certificate);
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>(commonName), -1, -1, 0);
  const Identity& signer = issuer == nullptr ? made : *issuer;
  X509_set_issuer_name(made.certificate, X509_get_subject_name(signer.certificate));
  addExtension(made.certificate, signer.certificate, extension, extensionValue);
  X509_sign(made.certificate, signer.key, EVP_sha256());
  return made;
}

const Identity& authority() {
  static const Identity identity =
      makeIdentity("Test Authority", "critical,CA:TRUE", NID_basic_constraints, nullptr);
  return identity;
}

Identity serverIdentity(TestCertificate certificate) {
  constexpr int kNames = NID_subject_alt_name;
  switch (certificate) {
    case TestCertificate::Trusted:
      return makeIdentity("server.test", "IP:127.0.0.1", kNames, &authority());
    case TestCertificate::SelfSigned:
      return makeIdentity("server.test", "IP:127.0.0.1", kNames, nullptr);
    case TestCertificate::OtherHost:
      return makeIdentity("other.test", "DNS:other.test", kNames, &authority());
  }
  return {};
}

SSL_CTX* makeContext(TestCertificate certificate) {
  const Identity identity = serverIdentity(certificate);
  SSL_CTX* context = SSL_CTX_new(TLS_server_method());
  SSL_CTX_use_certificate(context, identity.certificate);
  SSL_CTX_use_PrivateKey(context, identity.key);
  return context;
}

SSL_CTX* serverContext(TestCertificate certificate) {
  static SSL_CTX* const contexts[] = {makeContext(TestCertificate::Trusted),
                                      makeContext(TestCertificate::SelfSigned),
                                      makeContext(TestCertificate::OtherHost)};
  return contexts[static_cast<int>(certificate)];
}

}  // namespace

std::string authorityPem() {
  BIO* memory = BIO_new(BIO_s_mem());
  PEM_write_bio_X509(memory, authority().certificate);
  char* data = nullptr;
  const long size = BIO_get_mem_data(memory, &data);
  std::string pem(data, static_cast<std::size_t>(size));
  BIO_free(memory);
  return pem;
}

struct TlsServerStream::Impl {
  SSL* ssl = nullptr;
  BIO* incoming = BIO_new(BIO_s_mem());
  BIO* outgoing = BIO_new(BIO_s_mem());
};

TlsServerStream::TlsServerStream(TestCertificate certificate) : impl_(std::make_unique<Impl>()) {
  impl_->ssl = SSL_new(serverContext(certificate));
  SSL_set_bio(impl_->ssl, impl_->incoming, impl_->outgoing);
  SSL_set_accept_state(impl_->ssl);
}

TlsServerStream::~TlsServerStream() {
  SSL_free(impl_->ssl);
}

bool TlsServerStream::feed(std::string_view bytes, std::string& plain, std::string& wire) {
  BIO_write(impl_->incoming, bytes.data(), static_cast<int>(bytes.size()));
  char chunk[16384];
  int count = 0;
  while ((count = SSL_read(impl_->ssl, chunk, sizeof chunk)) > 0) {
    plain.append(chunk, static_cast<std::size_t>(count));
  }
  const bool alive = SSL_get_error(impl_->ssl, count) == SSL_ERROR_WANT_READ;
  write("", wire);
  return alive;
}

void TlsServerStream::write(std::string_view plain, std::string& wire) {
  if (!plain.empty()) SSL_write(impl_->ssl, plain.data(), static_cast<int>(plain.size()));
  char chunk[16384];
  int count = 0;
  while ((count = BIO_read(impl_->outgoing, chunk, sizeof chunk)) > 0) {
    wire.append(chunk, static_cast<std::size_t>(count));
  }
}

bool TlsServerStream::established() const {
  return SSL_is_init_finished(impl_->ssl) == 1;
}

bool TlsServerStream::resumed() const {
  return SSL_session_reused(impl_->ssl) == 1;
}

}  // namespace test_support
