// Security packages of the system, in the shape of SSPI: a context is stepped with the tokens of
// the peer until it stands; a stream context then encrypts and decrypts. No network in here: the
// caller carries the bytes. The handshake loop, left-over bytes and record splitting are in net/.
// A context is used by one thread at a time; the package by several.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace platform {

enum class SecurityStatus {
  Ok,
  ContinueNeeded,  // a token of the peer is needed
  Incomplete,      // not one whole record yet
  Renegotiate,     // step again with what was not consumed
  ContextExpired,  // the peer has ended the stream
  Failed,
};

// How far the closing token has come.
enum class CloseNotify {
  Made,
  NotAccepted,  // the context does not take the order to end
  NotMade,
};

struct StreamSizes {
  std::size_t header = 0;
  std::size_t trailer = 0;
  std::size_t maximumMessage = 0;
};

struct PeerCertificate {
  std::string pem;
  std::string subjectCn;
  std::string issuerCn;
  // What a login binds itself to, so that it is good on this connection only:
  // "tls-server-end-point:" and the certificate's digest (RFC 5929 section 4). Empty: the
  // certificate has no such digest.
  std::string endPointBinding;
  bool verified = false;  // chain and host name
  std::string problem;    // in words, when not verified
};

// A TLS client. In each call `extra` is set to the number of bytes at the end of `in` that were not
// consumed: the caller gives them again, followed by what has arrived since.
class SecureStream {
 public:
  virtual ~SecureStream() = default;

  // `out` is to be sent to the peer whatever the status is; empty: nothing.
  virtual SecurityStatus step(std::string_view in, std::string& out, std::size_t& extra) = 0;
  virtual StreamSizes sizes() const = 0;
  // Appends one record; at most sizes().maximumMessage bytes at a time.
  virtual SecurityStatus encrypt(std::string_view plain, std::string& record) = 0;
  // Appends what the records hold; `out` as in step.
  virtual SecurityStatus decrypt(std::string_view in, std::string& plain, std::string& out,
                                 std::size_t& extra) = 0;
  virtual CloseNotify shutdown(std::string& out) = 0;
  // The subject of the certificate that the client presents; empty: none.
  virtual std::string clientCertificateName() const = 0;
  virtual bool peerCertificate(PeerCertificate& certificate) const = 0;
  // The last failure in words, for the log.
  virtual std::string failureText() const = 0;
};

struct TlsClientOptions {
  std::string host;        // for the server to choose its certificate, and to check it against
  std::string sessionKey;  // connections with the same key may resume each other's sessions
  std::string clientCertificate;  // PEM file with certificate and key; empty: none
};

// TLS 1.2 or later with the system's default ciphers and trusted roots. Null, with `error` in
// words, when the credentials cannot be made.
std::unique_ptr<SecureStream> createTlsClient(const TlsClientOptions& options, std::string& error);

// What the NTLM package answers, in the numbers of SSPI on every system.
using SspiStatus = std::uint32_t;
inline constexpr SspiStatus kSecOk = 0;
inline constexpr SspiStatus kSecContinueNeeded = 0x00090312;
inline constexpr SspiStatus kSecCompleteNeeded = 0x00090313;
inline constexpr SspiStatus kSecCompleteAndContinue = 0x00090314;
inline constexpr SspiStatus kSecInsufficientMemory = 0x80090300;
inline constexpr SspiStatus kSecInvalidHandle = 0x80090301;
inline constexpr SspiStatus kSecTargetUnknown = 0x80090303;
inline constexpr SspiStatus kSecInternalError = 0x80090304;
inline constexpr SspiStatus kSecPackageNotFound = 0x80090305;
inline constexpr SspiStatus kSecNotOwner = 0x80090306;
inline constexpr SspiStatus kSecInvalidToken = 0x80090308;
inline constexpr SspiStatus kSecLogonDenied = 0x8009030C;
inline constexpr SspiStatus kSecUnknownCredentials = 0x8009030D;
inline constexpr SspiStatus kSecNoCredentials = 0x8009030E;
inline constexpr SspiStatus kSecNoAuthenticatingAuthority = 0x80090311;

struct NtlmCredentials {  // UTF-8
  std::string user;       // empty: the account of the process
  std::string password;
  std::string domain;  // empty: none is sent
  // As PeerCertificate::endPointBinding of the connection; empty: it has no TLS.
  std::string channelBinding{};
};

// The client's side of one NTLM log-in.
class NtlmClient {
 public:
  virtual ~NtlmClient() = default;

  // `in`: the server's token, empty at first. `out`: the answer, ready to be sent, when the status
  // is one of the first four above. A status of "complete" has been seen to already.
  virtual SspiStatus step(std::string_view in, std::string& out) = 0;
};

// `host` is the server's name, which the login names as the service "SMTP/host". Null, with
// `status` saying why, when there are no such credentials or the system has no NTLM.
std::unique_ptr<NtlmClient> createNtlmClient(const NtlmCredentials& credentials,
                                             const std::string& host, SspiStatus& status);

}  // namespace platform
