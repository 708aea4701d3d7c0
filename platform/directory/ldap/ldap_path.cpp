// Name, connection, TLS; see the header.
#include "platform/directory/ldap/ldap_path.h"

#include <cerrno>
#include <memory>
#include <string_view>
#include <system_error>

#include <arpa/inet.h>
#include <fcntl.h>
#include <ldap.h>
#include <netdb.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "platform/network/certificate.h"
#include "platform/system/clock.h"
#include "platform/system/linux/open_file.h"
#include "platform/system/release.h"

namespace platform {
namespace {

using Addresses = std::unique_ptr<addrinfo, Release<freeaddrinfo>>;
using Context = std::unique_ptr<SSL_CTX, Release<SSL_CTX_free>>;
using Connection = std::unique_ptr<SSL, Release<SSL_free>>;

std::string systemText(int error) {
  return std::generic_category().message(error);
}

std::string addressText(const addrinfo& address) {
  char text[NI_MAXHOST] = "";
  getnameinfo(address.ai_addr, address.ai_addrlen, text, sizeof text, nullptr, 0, NI_NUMERICHOST);
  return text;
}

// 0, or the error number.
int connectWithin(int socket, const addrinfo& address, int seconds) {
  const int flags = ::fcntl(socket, F_GETFL);
  ::fcntl(socket, F_SETFL, flags | O_NONBLOCK);
  if (::connect(socket, address.ai_addr, address.ai_addrlen) != 0) {
    if (errno != EINPROGRESS) return errno;
    pollfd waiting = {socket, POLLOUT, 0};
    const int ready = ::poll(&waiting, 1, seconds * 1000);
    if (ready == 0) return ETIMEDOUT;
    int error = 0;
    socklen_t size = sizeof error;
    if (ready < 0 || ::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) != 0) return errno;
    if (error != 0) return error;
  }
  ::fcntl(socket, F_SETFL, flags);
  const timeval limit = {seconds, 0};
  ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  return 0;
}

// Empty when the server is ready for TLS.
std::string askForTls(int socket) {
  // An extended request with the name 1.3.6.1.4.1.1466.20037 (RFC 4511 section 4.14).
  constexpr std::string_view kRequest(
      "\x30\x1d\x02\x01\x01\x77\x18\x80\x16"
      "1.3.6.1.4.1.1466.20037");
  char answer[4096];
  const bool sent = ::send(socket, kRequest.data(), kRequest.size(), MSG_NOSIGNAL) ==
                    static_cast<ssize_t>(kRequest.size());
  const ssize_t count = sent ? ::recv(socket, answer, sizeof answer, 0) : -1;
  if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return "no answer to StartTLS";
  if (count <= 0) return "the server hung up at StartTLS";
  const berval bytes = {static_cast<ber_len_t>(count), answer};
  const std::unique_ptr<BerElement, void (*)(BerElement*)> reader(
      ber_init(const_cast<berval*>(&bytes)), [](BerElement* element) { ber_free(element, 1); });
  ber_int_t number = 0;
  ber_tag_t operation = 0;
  ber_int_t code = LDAP_PROTOCOL_ERROR;
  if (ber_scanf(reader.get(), "{it{e", &number, &operation, &code) == LBER_ERROR ||
      operation != LDAP_RES_EXTENDED) {
    return "the answer to StartTLS is not understood";
  }
  return code == LDAP_SUCCESS ? "" : std::string("StartTLS refused: ") + ldap_err2string(code);
}

std::string pemOf(X509* certificate) {
  const std::unique_ptr<BIO, Release<BIO_free_all>> out(BIO_new(BIO_s_mem()));
  if (out == nullptr || PEM_write_bio_X509(out.get(), certificate) != 1) return {};
  char* data = nullptr;
  const long size = BIO_get_mem_data(out.get(), &data);
  return {data, static_cast<std::size_t>(size)};
}

std::string refusal(const std::vector<std::string>& certificates, const LdapAddress& server,
                    const std::string& caFile, long result) {
  const auto facts = certificates.empty() ? std::nullopt : describeCertificate(certificates[0]);
  if (!facts) return "the server shows no certificate";
  return "the server's certificate " +
         certificateFault(*facts, server.host, systemClock().fileTime()) + " (" +
         X509_verify_cert_error_string(result) + "; authorities: " + caFile + ")";
}

// Empty when TLS stands and its certificate is good.
std::string makeTls(int socket, const LdapAddress& server, const std::string& caFile,
                    std::vector<std::string>& certificates) {
  ERR_clear_error();
  const Context context(SSL_CTX_new(TLS_client_method()));
  const Connection tls(context == nullptr ? nullptr : SSL_new(context.get()));
  if (tls == nullptr) return "out of memory";
  SSL_CTX_load_verify_locations(context.get(), caFile.c_str(), nullptr);
  SSL_set_min_proto_version(tls.get(), TLS1_2_VERSION);
  X509_VERIFY_PARAM* rules = SSL_get0_param(tls.get());
  // As libldap does: whatever stands in the file is trusted, an authority's certificate or another.
  X509_VERIFY_PARAM_set_flags(rules, X509_V_FLAG_PARTIAL_CHAIN);
  if (X509_VERIFY_PARAM_set1_ip_asc(rules, server.host.c_str()) != 1) {
    X509_VERIFY_PARAM_set1_host(rules, server.host.c_str(), server.host.size());
    SSL_set_tlsext_host_name(tls.get(), server.host.c_str());
  }
  SSL_set_fd(tls.get(), socket);
  errno = 0;
  const int result = SSL_connect(tls.get());
  if (result != 1) {
    const bool timedOut = errno == EAGAIN || errno == EWOULDBLOCK;
    const char* const reason = ERR_reason_error_string(ERR_get_error());
    ERR_clear_error();
    if (timedOut) return "no answer in the handshake";
    return reason != nullptr ? std::string("the handshake failed: ") + reason
                             : "the server hung up in the handshake";
  }
  const STACK_OF(X509)* chain = SSL_get_peer_cert_chain(tls.get());
  for (int i = 0; i < sk_X509_num(chain); ++i) {
    certificates.push_back(pemOf(sk_X509_value(chain, i)));
  }
  const long verified = SSL_get_verify_result(tls.get());
  ERR_clear_error();
  SSL_shutdown(tls.get());
  return verified == X509_V_OK ? "" : refusal(certificates, server, caFile, verified);
}

LdapPath failedPath(LdapPath path, DirectoryStep step, std::string problem) {
  path.failedAt = step;
  path.problem = std::move(problem);
  return path;
}

}  // namespace

std::string LdapAddress::text() const {
  const bool ipv6 = host.find(':') != std::string::npos;
  return (ipv6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

LdapAddress ldapAddress(const std::string& uri) {
  LDAPURLDesc* found = nullptr;
  if (ldap_url_parse(uri.c_str(), &found) != LDAP_URL_SUCCESS) return {};
  const std::unique_ptr<LDAPURLDesc, Release<ldap_free_urldesc>> parts(found);
  const std::string_view scheme = parts->lud_scheme != nullptr ? parts->lud_scheme : "";
  if (scheme == "ldapi" || parts->lud_host == nullptr) return {};
  const bool tls = scheme == "ldaps";
  int port = parts->lud_port;
  if (port == 0) port = tls ? LDAPS_PORT : LDAP_PORT;
  return {parts->lud_host, port, tls};
}

LdapPath walkLdapPath(const LdapAddress& server, const LdapPathOptions& options) {
  LdapPath path;
  addrinfo hints = {};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int code =
      getaddrinfo(server.host.c_str(), std::to_string(server.port).c_str(), &hints, &found);
  const Addresses addresses(found);
  if (code != 0) {
    const std::string reason = code == EAI_SYSTEM ? systemText(errno) : gai_strerror(code);
    return failedPath(path, DirectoryStep::Name, "name not found (" + reason + ")");
  }
  for (const addrinfo* address = found; address != nullptr; address = address->ai_next) {
    path.addresses.push_back(addressText(*address));
  }
  int error = 0;
  for (const addrinfo* address = found; address != nullptr; address = address->ai_next) {
    const Descriptor socket(::socket(address->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    error = !socket.valid() ? errno : connectWithin(socket.get(), *address, options.seconds);
    if (error != 0) continue;
    path.connected = true;
    if (!options.wantsTls) return path;
    std::string problem = server.tlsFirst ? "" : askForTls(socket.get());
    if (problem.empty()) {
      problem = makeTls(socket.get(), server, options.caFile, path.certificates);
    }
    return problem.empty() ? path
                           : failedPath(std::move(path), DirectoryStep::Tls, "TLS: " + problem);
  }
  const std::string reason = error == ECONNREFUSED ? "connection refused"
                             : error == ETIMEDOUT  ? "timed out: no answer to the connection"
                                                   : "no connection: " + systemText(error);
  return failedPath(std::move(path), DirectoryStep::Connect, reason);
}

}  // namespace platform
