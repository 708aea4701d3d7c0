// An SMTP server that takes every mail and forgets it, with and without STARTTLS: smtp-sink of
// Postfix has no TLS. A thread a connection; bench.py ends it.
//   tls_sink FILE   writes its certificate, made just now and signed by itself, to the file, for
//                   clients to verify; listens on a free port of 127.0.0.1 and prints it
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <thread>

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

void addExtension(X509* certificate, int nid, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
}

SSL_CTX* makeContext(const char* certificateFile) {
  EVP_PKEY* key = EVP_RSA_gen(2048);  // as the certificates of most mail servers are
  X509* certificate = X509_new();
  X509_set_version(certificate, X509_VERSION_3);
  X509_gmtime_adj(X509_getm_notBefore(certificate), -3600);
  X509_gmtime_adj(X509_getm_notAfter(certificate), 24 * 3600);
  X509_set_pubkey(certificate, key);
  X509_NAME* name = X509_get_subject_name(certificate);
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>("bench.example"), -1, -1, 0);
  X509_set_issuer_name(certificate, name);
  addExtension(certificate, NID_basic_constraints, "critical,CA:TRUE");
  addExtension(certificate, NID_subject_alt_name, "IP:127.0.0.1");
  X509_sign(certificate, key, EVP_sha256());
  std::FILE* file = std::fopen(certificateFile, "w");
  if (file == nullptr || PEM_write_X509(file, certificate) != 1 || std::fclose(file) != 0) {
    return nullptr;
  }
  SSL_CTX* context = SSL_CTX_new(TLS_server_method());
  SSL_CTX_use_certificate(context, certificate);
  SSL_CTX_use_PrivateKey(context, key);
  return context;
}

class Connection {
 public:
  Connection(int socket, SSL_CTX* context) : socket_(socket), context_(context) {}
  ~Connection() {
    SSL_free(ssl_);
    close(socket_);
  }

  void serve() {
    say("220 sink\r\n");
    std::string line;
    while (readLine(line)) {
      if (line.starts_with("EHLO")) {
        say("250-sink\r\n250-PIPELINING\r\n250-8BITMIME\r\n250 STARTTLS\r\n");
      } else if (line.starts_with("STARTTLS")) {
        say("220 go\r\n");
        if (!startTls()) return;
      } else if (line.starts_with("DATA")) {
        say("354 go\r\n");
        if (!skipMessage()) return;
        say("250 ok\r\n");
      } else if (line.starts_with("QUIT")) {
        say("221 bye\r\n");
        return;
      } else {
        say("250 ok\r\n");
      }
    }
  }

 private:
  bool startTls() {
    ssl_ = SSL_new(context_);
    SSL_set_fd(ssl_, socket_);
    return SSL_accept(ssl_) == 1;
  }

  bool readMore() {
    char chunk[65536];
    const auto count = ssl_ != nullptr ? SSL_read(ssl_, chunk, sizeof chunk)
                                       : static_cast<int>(read(socket_, chunk, sizeof chunk));
    if (count <= 0) return false;
    buffer_.append(chunk, static_cast<std::size_t>(count));
    return true;
  }

  bool readLine(std::string& line) {
    std::size_t end = 0;
    while ((end = buffer_.find("\r\n")) == std::string::npos) {
      if (!readMore()) return false;
    }
    line = buffer_.substr(0, end);
    buffer_.erase(0, end + 2);
    return true;
  }

  bool skipMessage() {
    constexpr std::string_view kEnd = "\r\n.\r\n";
    std::size_t end = 0;
    while ((end = buffer_.find(kEnd)) == std::string::npos) {
      if (buffer_.size() > kEnd.size()) buffer_.erase(0, buffer_.size() - kEnd.size());
      if (!readMore()) return false;
    }
    buffer_.erase(0, end + kEnd.size());
    return true;
  }

  void say(std::string_view reply) {
    if (ssl_ != nullptr) {
      SSL_write(ssl_, reply.data(), static_cast<int>(reply.size()));
    } else {
      send(socket_, reply.data(), reply.size(), MSG_NOSIGNAL);
    }
  }

  int socket_;
  SSL_CTX* context_;
  SSL* ssl_ = nullptr;
  std::string buffer_;
};

}  // namespace

int main(int argc, char** argv) {
  SSL_CTX* context = argc == 2 ? makeContext(argv[1]) : nullptr;
  if (context == nullptr) {
    std::fprintf(stderr, "usage: tls_sink FILE\n");
    return 2;
  }
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      listen(listener, 128) != 0 ||
      getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    std::perror("tls_sink");
    return 1;
  }
  std::signal(SIGPIPE, SIG_IGN);
  std::printf("%d\n", ntohs(address.sin_port));
  std::fflush(stdout);
  for (;;) {
    const int socket = accept(listener, nullptr, nullptr);
    if (socket < 0) continue;
    const int on = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    std::thread([socket, context] { Connection(socket, context).serve(); }).detach();
  }
}
