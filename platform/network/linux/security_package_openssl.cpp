// TLS behind platform/network/security_package.h, by OpenSSL with memory buffers in place of a
// socket.
#include <algorithm>
#include <map>
#include <mutex>

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include "platform/network/security_package.h"

namespace platform {
namespace {

// Sessions kept for resumption, one for each key; enough for every server a process talks to.
constexpr std::size_t kMaxCachedSessions = 64;

constexpr StreamSizes kSizes{SSL3_RT_HEADER_LENGTH, SSL3_RT_MAX_ENCRYPTED_OVERHEAD,
                             SSL3_RT_MAX_PLAIN_LENGTH};

struct ContextDeleter {
  void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
struct SessionDeleter {
  void operator()(SSL_SESSION* session) const { SSL_SESSION_free(session); }
};
struct CertificateDeleter {
  void operator()(X509* certificate) const { X509_free(certificate); }
};
using Context = std::unique_ptr<SSL_CTX, ContextDeleter>;
using Session = std::unique_ptr<SSL_SESSION, SessionDeleter>;
using Certificate = std::unique_ptr<X509, CertificateDeleter>;

std::string lastOpenSslError() {
  const unsigned long code = ERR_get_error();
  ERR_clear_error();
  if (code == 0) return {};
  char text[256];
  ERR_error_string_n(code, text, sizeof text);
  return text;
}

class SessionCache {
 public:
  void put(const std::string& key, Session session) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (sessions_.size() >= kMaxCachedSessions && sessions_.count(key) == 0) {
      sessions_.erase(sessions_.begin());
    }
    sessions_[key] = std::move(session);
  }

  Session get(const std::string& key) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = sessions_.find(key);
    if (found == sessions_.end()) return nullptr;
    SSL_SESSION_up_ref(found->second.get());
    return Session(found->second.get());
  }

 private:
  std::mutex mutex_;
  std::map<std::string, Session> sessions_;
};

SessionCache& sessionCache() {
  static SessionCache* const cache = new SessionCache;  // outlives every connection on purpose
  return *cache;
}

// OpenSSL hands a session over when the server has issued it, which TLS 1.3 does after the
// handshake.
int keepSession(SSL* ssl, SSL_SESSION* session) {
  const auto* key = static_cast<const std::string*>(SSL_get_app_data(ssl));
  if (key == nullptr || key->empty()) return 0;
  sessionCache().put(*key, Session(session));
  return 1;  // the reference is the cache's now
}

Context makeContext() {
  Context context(SSL_CTX_new(TLS_client_method()));
  if (context == nullptr) return nullptr;
  SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
  SSL_CTX_set_options(context.get(), SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
  SSL_CTX_set_default_verify_paths(context.get());
  // A key with a pass phrase is an error: there is nobody to ask.
  SSL_CTX_set_default_passwd_cb(context.get(), [](char*, int, int, void*) { return -1; });
  // The caller decides what a certificate that fails verification means; the result is kept.
  SSL_CTX_set_verify(context.get(), SSL_VERIFY_NONE, nullptr);
  SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_CLIENT | SSL_SESS_CACHE_NO_INTERNAL);
  SSL_CTX_sess_set_new_cb(context.get(), keepSession);
  return context;
}

// Reading the trusted roots takes milliseconds: one context serves all connections.
SSL_CTX* sharedContext() {
  static SSL_CTX* const context = makeContext().release();
  return context;
}

std::string commonName(const X509_NAME* name) {
  const int index = X509_NAME_get_index_by_NID(name, NID_commonName, -1);
  if (index < 0) return {};
  unsigned char* utf8 = nullptr;
  const int size =
      ASN1_STRING_to_UTF8(&utf8, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, index)));
  if (size < 0) return {};
  std::string text(reinterpret_cast<const char*>(utf8), static_cast<std::size_t>(size));
  OPENSSL_free(utf8);
  return text;
}

// What `write` writes; empty when it fails.
template <class Write>
std::string textOf(const Write& write) {
  BIO* memory = BIO_new(BIO_s_mem());
  std::string text;
  if (memory != nullptr && write(memory)) {
    char* data = nullptr;
    const long size = BIO_get_mem_data(memory, &data);
    text.assign(data, static_cast<std::size_t>(size));
  }
  BIO_free(memory);
  return text;
}

std::string pemOf(X509* certificate) {
  return textOf([&](BIO* out) { return PEM_write_bio_X509(out, certificate) == 1; });
}

// The digest is that of the certificate's signature, but SHA-256 in place of MD5 and SHA-1.
std::string endPointBinding(X509* certificate) {
  int digest = NID_undef;
  if (X509_get_signature_info(certificate, &digest, nullptr, nullptr, nullptr) != 1) return {};
  if (digest == NID_md5 || digest == NID_sha1) digest = NID_sha256;
  const EVP_MD* const method = EVP_get_digestbynid(digest);
  unsigned char bytes[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  if (method == nullptr || X509_digest(certificate, method, bytes, &size) != 1) {
    ERR_clear_error();
    return {};
  }
  return "tls-server-end-point:" + std::string(reinterpret_cast<const char*>(bytes), size);
}

std::string fullName(const X509_NAME* name) {
  constexpr unsigned long kUtf8OneLine = XN_FLAG_ONELINE & ~ASN1_STRFLGS_ESC_MSB;
  return textOf([&](BIO* out) { return X509_NAME_print_ex(out, name, 0, kUtf8OneLine) >= 0; });
}

class OpenSslStream final : public SecureStream {
 public:
  OpenSslStream(SSL* ssl, const TlsClientOptions& options)
      : ssl_(ssl), sessionKey_(options.sessionKey) {
    incoming_ = BIO_new(BIO_s_mem());
    outgoing_ = BIO_new(BIO_s_mem());
    SSL_set_bio(ssl_, incoming_, outgoing_);  // owns them from here on
    SSL_set_connect_state(ssl_);
    SSL_set_app_data(ssl_, &sessionKey_);
    if (const Session session = sessionCache().get(sessionKey_)) {
      SSL_set_session(ssl_, session.get());
    }
  }
  ~OpenSslStream() override {
    // Without this OpenSSL takes the connection for a broken one and spoils its session.
    SSL_set_shutdown(ssl_, SSL_SENT_SHUTDOWN | SSL_RECEIVED_SHUTDOWN);
    SSL_free(ssl_);
  }
  OpenSslStream(const OpenSslStream&) = delete;
  OpenSslStream& operator=(const OpenSslStream&) = delete;

  bool expectHost(const std::string& host) {
    X509_VERIFY_PARAM* rules = SSL_get0_param(ssl_);
    if (X509_VERIFY_PARAM_set1_ip_asc(rules, host.c_str()) == 1) return true;
    ERR_clear_error();
    return X509_VERIFY_PARAM_set1_host(rules, host.c_str(), host.size()) == 1 &&
           SSL_set_tlsext_host_name(ssl_, host.c_str()) == 1;
  }

  bool presentCertificate(const std::string& file) {
    return SSL_use_certificate_chain_file(ssl_, file.c_str()) == 1 &&
           SSL_use_PrivateKey_file(ssl_, file.c_str(), SSL_FILETYPE_PEM) == 1;
  }

  SecurityStatus step(std::string_view in, std::string& out, std::size_t& extra) override {
    feed(in);
    const int result = SSL_do_handshake(ssl_);
    takeOutput(out);
    extra = 0;
    if (result == 1) {
      // Records behind the handshake are not this call's: handed back.
      extra = std::min<std::size_t>(BIO_ctrl_pending(incoming_), in.size());
      BIO_reset(incoming_);
      return SecurityStatus::Ok;
    }
    if (SSL_get_error(ssl_, result) == SSL_ERROR_WANT_READ) return SecurityStatus::ContinueNeeded;
    return fail();
  }

  StreamSizes sizes() const override { return kSizes; }

  SecurityStatus encrypt(std::string_view plain, std::string& record) override {
    const int written = SSL_write(ssl_, plain.data(), static_cast<int>(plain.size()));
    takeOutput(record);
    return written == static_cast<int>(plain.size()) ? SecurityStatus::Ok : fail();
  }

  SecurityStatus decrypt(std::string_view in, std::string& plain, std::string& out,
                         std::size_t& extra) override {
    extra = 0;  // half a record stays inside OpenSSL
    feed(in);
    char buffer[SSL3_RT_MAX_PLAIN_LENGTH];
    int count = 0;
    while ((count = SSL_read(ssl_, buffer, sizeof buffer)) > 0) {
      plain.append(buffer, static_cast<std::size_t>(count));
    }
    takeOutput(out);
    switch (SSL_get_error(ssl_, count)) {
      case SSL_ERROR_WANT_READ:
        return SecurityStatus::Incomplete;
      case SSL_ERROR_ZERO_RETURN:
        return SecurityStatus::ContextExpired;
      default:
        return fail();
    }
  }

  CloseNotify shutdown(std::string& out) override {
    const int result = SSL_shutdown(ssl_);
    takeOutput(out);
    ERR_clear_error();
    return result >= 0 ? CloseNotify::Made : CloseNotify::NotMade;
  }

  std::string clientCertificateName() const override {
    X509* certificate = SSL_get_certificate(ssl_);
    return certificate == nullptr ? "" : fullName(X509_get_subject_name(certificate));
  }

  bool peerCertificate(PeerCertificate& certificate) const override {
    const Certificate peer(SSL_get1_peer_certificate(ssl_));
    if (peer == nullptr) return false;
    const long result = SSL_get_verify_result(ssl_);
    certificate.pem = pemOf(peer.get());
    certificate.subjectCn = commonName(X509_get_subject_name(peer.get()));
    certificate.issuerCn = commonName(X509_get_issuer_name(peer.get()));
    certificate.endPointBinding = endPointBinding(peer.get());
    certificate.verified = result == X509_V_OK;
    certificate.problem = certificate.verified ? "" : X509_verify_cert_error_string(result);
    return true;
  }

  std::string failureText() const override { return failure_; }

 private:
  void feed(std::string_view in) {
    if (!in.empty()) BIO_write(incoming_, in.data(), static_cast<int>(in.size()));
  }

  void takeOutput(std::string& out) {
    const std::size_t size = BIO_ctrl_pending(outgoing_);
    if (size == 0) return;
    const std::size_t before = out.size();
    out.resize(before + size);
    BIO_read(outgoing_, out.data() + before, static_cast<int>(size));
  }

  SecurityStatus fail() {
    failure_ = lastOpenSslError();
    return SecurityStatus::Failed;
  }

  SSL* ssl_;
  BIO* incoming_ = nullptr;
  BIO* outgoing_ = nullptr;
  std::string sessionKey_;
  std::string failure_;
};

}  // namespace

std::unique_ptr<SecureStream> createTlsClient(const TlsClientOptions& options, std::string& error) {
  ERR_clear_error();
  SSL_CTX* context = sharedContext();
  SSL* ssl = context == nullptr ? nullptr : SSL_new(context);
  if (ssl == nullptr) {
    error = lastOpenSslError();
    return nullptr;
  }
  auto stream = std::make_unique<OpenSslStream>(ssl, options);
  if (!stream->expectHost(options.host) ||
      (!options.clientCertificate.empty() &&
       !stream->presentCertificate(options.clientCertificate))) {
    error = lastOpenSslError();
    return nullptr;
  }
  return stream;
}

}  // namespace platform
