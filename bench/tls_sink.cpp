// An SMTP server that takes every mail and forgets it, with and without STARTTLS: smtp-sink of
// Postfix has no TLS. As many connections at a time as it has threads; bench.py ends it.
//   tls_sink FILE   writes the authority of its certificate, made just now, to the file, for
//   clients
//                   to verify; listens on a free port of 127.0.0.1 and prints it
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

constexpr int kThreads = 4;

struct Identity {
  X509* certificate;
  EVP_PKEY* key;
};

void addExtension(X509* certificate, int nid, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
}

// Null for the issuer: it signs itself.
Identity makeIdentity(const char* name, unsigned keyBits, const Identity* issuer,
                      const char* constraints) {
  const Identity made{X509_new(), EVP_RSA_gen(keyBits)};
  if (issuer == nullptr) issuer = &made;
  X509_set_version(made.certificate, X509_VERSION_3);
  ASN1_INTEGER_set_uint64(X509_get_serialNumber(made.certificate), keyBits);
  X509_gmtime_adj(X509_getm_notBefore(made.certificate), -3600);
  X509_gmtime_adj(X509_getm_notAfter(made.certificate), 24 * 3600);
  X509_set_pubkey(made.certificate, made.key);
  X509_NAME_add_entry_by_txt(X509_get_subject_name(made.certificate), "CN", MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>(name), -1, -1, 0);
  X509_set_issuer_name(made.certificate, X509_get_subject_name(issuer->certificate));
  addExtension(made.certificate, NID_basic_constraints, constraints);
  addExtension(made.certificate, NID_subject_alt_name, "IP:127.0.0.1");
  X509_sign(made.certificate, issuer->key, EVP_sha256());
  return made;
}

// Below an intermediate authority, with keys of the sizes that mail servers have for the most part.
SSL_CTX* makeContext(const char* authorityFile) {
  const Identity root = makeIdentity("Bench Root", 4096, nullptr, "critical,CA:TRUE");
  const Identity middle = makeIdentity("Bench Authority", 2048, &root, "critical,CA:TRUE");
  const Identity server = makeIdentity("bench.example", 2048, &middle, "critical,CA:FALSE");
  std::FILE* file = std::fopen(authorityFile, "w");
  if (file == nullptr || PEM_write_X509(file, root.certificate) != 1 || std::fclose(file) != 0) {
    return nullptr;
  }
  SSL_CTX* context = SSL_CTX_new(TLS_server_method());
  SSL_CTX_use_certificate(context, server.certificate);
  SSL_CTX_use_PrivateKey(context, server.key);
  SSL_CTX_add0_chain_cert(context, middle.certificate);
  return context;
}

class Connection {
 public:
  Connection(int socket, SSL_CTX* context) : socket_(socket), context_(context) {}
  ~Connection() {
    flush();
    SSL_free(ssl_);
    close(socket_);
  }

  void serve() {
    say("220 sink\r\n");
    std::string line;
    while (readLine(line)) {
      if (line.starts_with("EHLO")) {
        say("250-sink\r\n250-PIPELINING\r\n250-8BITMIME\r\n250-AUTH LOGIN XOAUTH2\r\n250 "
            "STARTTLS\r\n");
      } else if (line.starts_with("STARTTLS")) {
        say("220 go\r\n");
        flush();
        if (!startTls()) return;
      } else if (line.starts_with("AUTH")) {
        if (!logIn(line)) return;
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
  // Takes whatever is said: LOGIN's name and password, or XOAUTH2's token.
  bool logIn(std::string& line) {
    constexpr std::string_view kTokenAhead = "AUTH XOAUTH2 ";
    int answers = line.starts_with("AUTH LOGIN") ? 2 : line.starts_with(kTokenAhead) ? 0 : 1;
    for (; answers > 0; --answers) {
      say("334 VXNlcm5hbWU6\r\n");
      if (!readLine(line)) return false;
    }
    say("235 in\r\n");
    return true;
  }

  bool startTls() {
    ssl_ = SSL_new(context_);
    SSL_set_fd(ssl_, socket_);
    return SSL_accept(ssl_) == 1;
  }

  bool readMore() {
    flush();
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

  void say(std::string_view reply) { replies_ += reply; }

  // The replies to commands that came together leave together (RFC 2920 section 3.2).
  void flush() {
    if (replies_.empty()) return;
    if (ssl_ != nullptr) {
      SSL_write(ssl_, replies_.data(), static_cast<int>(replies_.size()));
    } else {
      send(socket_, replies_.data(), replies_.size(), MSG_NOSIGNAL);
    }
    replies_.clear();
  }

  int socket_;
  SSL_CTX* context_;
  SSL* ssl_ = nullptr;
  std::string buffer_;
  std::string replies_;
};

[[noreturn]] void serveForever(int listener, SSL_CTX* context) {
  for (;;) {
    const int socket = accept(listener, nullptr, nullptr);
    if (socket < 0) continue;
    const int on = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    Connection(socket, context).serve();
  }
}

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
  for (int i = 1; i < kThreads; ++i) std::thread(serveForever, listener, context).detach();
  serveForever(listener, context);
}
