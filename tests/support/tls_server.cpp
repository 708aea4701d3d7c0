#include "tests/support/tls_server.h"

#include <csignal>
#include <string_view>

#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

namespace test_support {
namespace {

// With a new certificate, signed by itself. Lives until the process ends.
SSL_CTX* makeContext(const char* commonName, const char* alternativeName) {
  EVP_PKEY* key = EVP_EC_gen("P-256");
  X509* certificate = X509_new();
  X509_set_version(certificate, X509_VERSION_3);
  X509_gmtime_adj(X509_getm_notBefore(certificate), -3600);
  X509_gmtime_adj(X509_getm_notAfter(certificate), 3600);
  X509_set_pubkey(certificate, key);
  X509_NAME* name = X509_get_subject_name(certificate);
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>(commonName), -1, -1, 0);
  X509_set_issuer_name(certificate, name);
  X509_EXTENSION* extension =
      X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, alternativeName);
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
  X509_sign(certificate, key, EVP_sha256());
  SSL_CTX* context = SSL_CTX_new(TLS_server_method());
  SSL_CTX_use_certificate(context, certificate);
  SSL_CTX_use_PrivateKey(context, key);
  return context;
}

SSL_CTX* contextOf(std::string_view certificate) {
  static SSL_CTX* const trusted = makeContext("server.test", "IP:127.0.0.1");
  static SSL_CTX* const selfSigned = makeContext("selfsigned.test", "IP:127.0.0.1");
  static SSL_CTX* const otherHost = makeContext("<![CDATA[]]><other>", "DNS:other.test");
  return certificate == "trusted" ? trusted : certificate == "otherhost" ? otherHost : selfSigned;
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

std::string trustedPem() {
  BIO* memory = BIO_new(BIO_s_mem());
  for (const char* certificate : {"trusted", "otherhost"}) {
    PEM_write_bio_X509(memory, SSL_CTX_get0_certificate(contextOf(certificate)));
  }
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
