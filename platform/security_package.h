// Security packages of the system, in the shape of SSPI: a context is stepped with the tokens of
// the peer until it stands; a stream context then encrypts and decrypts. No network in here: the
// caller carries the bytes. The handshake loop, left-over bytes and record splitting are in net/.
// A context is used by one thread at a time; the package by several.
#pragma once

#include <cstddef>
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

struct StreamSizes {
  std::size_t header = 0;
  std::size_t trailer = 0;
  std::size_t maximumMessage = 0;
};

struct PeerCertificate {
  std::string pem;
  std::string subjectCn;
  std::string issuerCn;
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
  virtual SecurityStatus shutdown(std::string& out) = 0;  // the close notify
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

}  // namespace platform
