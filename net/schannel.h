// TLS over a connected socket: handshake, records, close notify. The security package
// (platform/network/security_package.h) only turns bytes into bytes; incomplete records are kept
// here. Used by the SMTP session for implicit TLS and after STARTTLS. One thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "net/byte_channel.h"
#include "net/kelvado_socket.h"
#include "platform/network/security_package.h"

namespace kelvado {

struct TlsRequirements {
  bool verified = false;          // a certificate that fails verification fails the channel
  std::string clientCertificate;  // PEM file with certificate and key; empty: none
  // The certificate's issuer (a name that begins with 'i') or subject ('s') must have `value` for
  // its "CN". An empty name requires nothing.
  std::string name;
  std::string value;

  bool operator==(const TlsRequirements&) const = default;
};

class SChannel final : public ByteChannel {
 public:
  // `socket` is connected, and outlives the channel.
  explicit SChannel(KelvadoSocket& socket) : socket_(socket) {}

  // `host` is the name that the certificate must carry. timeoutMs is for the whole handshake. On
  // failure the caller closes the socket.
  bool EstablishChannel(const std::string& host, std::uint16_t port,
                        const TlsRequirements& requirements, std::uint32_t timeoutMs, Call& call);
  // Public: the same under its second name, which nothing in here calls.
  bool EstablishChannel2(const std::string& host, std::uint16_t port,
                         const TlsRequirements& requirements, std::uint32_t timeoutMs, Call& call) {
    return EstablishChannel(host, port, requirements, timeoutMs, call);
  }
  bool SendSecure(std::string_view data, std::uint32_t idleTimeoutMs, Call& call);
  // Sends the close notify and closes the socket, whatever happens.
  void ShutdownChannel(std::uint32_t timeoutMs, Call& call);

  // Whether the last EstablishChannel failed by the server's certificate; status() says why.
  bool refusedCertificate() const { return refusedCertificate_; }
  // Of the server; empty before the handshake.
  const platform::PeerCertificate& certificate() const { return certificate_; }

  bool isConnected() const override { return established_ && socket_.isConnected(); }
  void close() override { socket_.close(); }
  bool sendBytes(std::string_view data, std::uint32_t idleTimeoutMs, Call& call) override {
    return SendSecure(data, idleTimeoutMs, call);
  }

 protected:
  bool receiveMore(std::string& buffer, const Countdown& left, Call& call) override;
  const char* readAbortedText() const override {
    return "SChannel read aborted by application callback";
  }

 private:
  bool handshake(const Countdown& left, Call& call);
  bool verifyCertificate(const TlsRequirements& requirements, Call& call);
  bool meetsRequirement(const TlsRequirements& requirements, Call& call);
  bool sendToken(const std::string& token, std::uint32_t timeoutMs, Call& call);
  bool sendHeld(std::uint32_t timeoutMs, Call& call);
  bool readEncrypted(const Countdown& left, Call& call);
  bool sendCloseNotify(std::uint32_t timeoutMs, Call& call);
  void keepExtra(std::size_t extra) { encrypted_.erase(0, encrypted_.size() - extra); }

  KelvadoSocket& socket_;
  std::unique_ptr<platform::SecureStream> stream_;
  platform::PeerCertificate certificate_;
  std::string encrypted_;  // received, not yet taken by the stream
  std::string held_;       // made already, and leaves together with what is sent next
  bool established_ = false;
  bool refusedCertificate_ = false;
  bool peerHasClosed_ = false;  // by close notify; nothing comes after it
};

}  // namespace kelvado
