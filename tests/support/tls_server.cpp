#include "tests/support/tls_server.h"

#include <csignal>
#include <string_view>
#include <utility>

#include <fcntl.h>
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

SSL_CTX* makeContext(const Identity& identity) {
  SSL_CTX* context = SSL_CTX_new(TLS_server_method());
  SSL_CTX_use_certificate(context, identity.certificate);
  SSL_CTX_use_PrivateKey(context, identity.key);
  return context;
}

SSL_CTX* contextOf(const std::string& certificate) {
  constexpr int kNames = NID_subject_alt_name;
  static const std::pair<std::string_view, SSL_CTX*> contexts[] = {
      {"trusted", makeContext(makeIdentity("server.test", "IP:127.0.0.1", kNames, &authority()))},
      {"selfsigned", makeContext(makeIdentity("server.test", "IP:127.0.0.1", kNames, nullptr))},
      {"otherhost",
       makeContext(makeIdentity("other.test", "DNS:other.test", kNames, &authority()))},
  };
  for (const auto& [name, context] : contexts) {
    if (name == certificate) return context;
  }
  return nullptr;
}

class TlsStream : public ServerStream {
 public:
  explicit TlsStream(SSL* ssl) : ssl_(ssl) {}
  ~TlsStream() override { SSL_free(ssl_); }

  bool read(std::string& heard) override {
    char chunk[16384];
    const int count = SSL_read(ssl_, chunk, sizeof chunk);
    if (count > 0) heard.append(chunk, static_cast<std::size_t>(count));
    return count > 0;
  }
  bool write(std::string_view bytes) override {
    return SSL_write(ssl_, bytes.data(), static_cast<int>(bytes.size())) > 0;
  }

 private:
  SSL* ssl_;
};

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

std::unique_ptr<ServerStream> tlsHandshake(platform::SocketHandle socket,
                                           const std::string& certificate) {
  std::signal(SIGPIPE, SIG_IGN);  // a client that does not like the certificate is gone early
  const int descriptor = static_cast<int>(socket);
  fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
  SSL* ssl = SSL_new(contextOf(certificate));
  SSL_set_fd(ssl, descriptor);
  auto stream = std::make_unique<TlsStream>(ssl);
  if (SSL_accept(ssl) != 1) return nullptr;
  return stream;
}

long resumedSessions() {
  return SSL_CTX_sess_hits(contextOf("trusted"));
}

}  // namespace test_support
