#include "net/schannel.h"

#include <utility>

#include "base/text.h"

namespace kelvado {
namespace {

using platform::SecurityStatus;

// In bytes; no handshake or record needs more at once. A peer that sends more is refused.
constexpr std::size_t kMaxUndecrypted = 65'536;

}  // namespace

bool SChannel::EstablishChannel(const std::string& host, std::uint16_t port,
                                const TlsRequirements& requirements, std::uint32_t timeoutMs,
                                Call& call) {
  platform::TlsClientOptions options;
  options.host = host;
  options.clientCertificate = requirements.clientCertificate;
  options.sessionKey = host + ":" + std::to_string(port) + ":" + requirements.clientCertificate;
  std::string error;
  stream_ = platform::createTlsClient(options, error);
  if (stream_ == nullptr) {
    if (!error.empty()) call.log.LogError(error);
    call.log.LogError("Error creating credentials");
    status_.problem = error.empty() ? "no TLS credentials" : base::loggableLine(error);
    return false;
  }
  const std::string clientName = base::loggable(stream_->clientCertificateName());
  if (!clientName.empty()) call.log.LogData("ClientCertDN", clientName);
  if (!handshake(Countdown(timeoutMs, call.progress.clock()), call)) {
    call.log.LogError("Error performing handshake.");
    return false;
  }
  refusedCertificate_ =
      !verifyCertificate(requirements, call) || !meetsRequirement(requirements, call);
  if (refusedCertificate_) return false;
  established_ = true;
  call.log.LogInfo("Secure Channel Established.");
  return true;
}

bool SChannel::handshake(const Countdown& left, Call& call) {
  for (;;) {
    std::string token;
    std::size_t extra = 0;
    const SecurityStatus status = stream_->step(encrypted_, token, extra);
    keepExtra(extra);
    if (status == SecurityStatus::Ok) {
      held_ = token;  // the last one
      return true;
    }
    // Sent also when the step failed: the alert names to the server what was wrong.
    const bool sent = sendToken(token, left.total(), call);
    if (status == SecurityStatus::Failed) {
      call.log.LogData("tls_error", base::loggable(stream_->failureText()));
      status_.problem = base::loggableLine(stream_->failureText());
      return false;
    }
    if (!sent) return false;
    if (left.remaining() == 0) {
      logReadTimeout(left, call);
      return false;
    }
    if (!readEncrypted(left, call)) return false;
  }
}

bool SChannel::verifyCertificate(const TlsRequirements& requirements, Call& call) {
  if (!stream_->peerCertificate(certificate_)) {
    call.log.LogError("Error querying remote certificate");
    status_.problem = "the server shows no certificate";
    return false;
  }
  if (certificate_.verified) {
    call.log.LogInfo("SSL Server Certificate verified.");
    return true;
  }
  call.log.LogInfo("SSL Server Certificate not verified.");
  call.log.LogData("tls_error", base::loggable(certificate_.problem));
  if (requirements.verified) call.log.LogError("Failed to verify server certificate");
  status_.problem = "certificate not verified: " + base::loggableLine(certificate_.problem);
  return !requirements.verified;
}

bool SChannel::meetsRequirement(const TlsRequirements& requirements, Call& call) {
  if (requirements.name.empty()) return true;
  const bool issuer = (requirements.name[0] | 0x20) == 'i';
  const std::string& actual = issuer ? certificate_.issuerCn : certificate_.subjectCn;
  if (actual == requirements.value) return true;
  call.log.LogError("SSL server certificate fails to match requirement");
  call.log.LogData("requireName", base::loggable(requirements.name));
  call.log.LogData("requireValue", base::loggable(requirements.value));
  call.log.LogData("certValue", base::loggable(actual));
  status_.problem = "certificate is of \"" + base::loggableLine(actual) + "\", not of \"" +
                    base::loggableLine(requirements.value) + "\"";
  return false;
}

bool SChannel::sendToken(const std::string& token, std::uint32_t timeoutMs, Call& call) {
  if (token.empty()) return true;
  const bool sent = socket_.sendBytes(token, timeoutMs, call);
  if (!sent) status_ = socket_.status();
  return sent;
}

bool SChannel::sendHeld(std::uint32_t timeoutMs, Call& call) {
  return sendToken(std::exchange(held_, {}), timeoutMs, call);
}

bool SChannel::readEncrypted(const Countdown& left, Call& call) {
  std::string arrived;
  if (encrypted_.size() > kMaxUndecrypted) {
    call.log.LogError("Received record is longer than allowed.");
    return false;
  }
  if (!socket_.receiveBytes(arrived, left, call)) {
    status_ = socket_.status();
    return false;
  }
  encrypted_ += arrived;
  return true;
}

bool SChannel::SendSecure(std::string_view data, std::uint32_t idleTimeoutMs, Call& call) {
  status_ = {};
  if (!isConnected()) {
    call.log.LogError("(SendSecure) Cannot send data, not connected.");
    return false;
  }
  const std::size_t pieceSize = stream_->sizes().maximumMessage;
  // Of one call together: fewer writes than records.
  std::string records = std::exchange(held_, {});
  while (!data.empty()) {
    const std::string_view piece = data.substr(0, pieceSize);
    if (stream_->encrypt(piece, records) != SecurityStatus::Ok) {
      call.log.LogError("Failed to encrypt secure send request");
      call.log.LogData("tls_error", base::loggable(stream_->failureText()));
      return false;
    }
    data.remove_prefix(piece.size());
  }
  if (sendToken(records, idleTimeoutMs, call)) return true;
  call.log.LogError("Failed to send secure");
  return false;
}

bool SChannel::receiveMore(std::string& buffer, const Countdown& left, Call& call) {
  if (!isConnected()) {
    call.log.LogError("This socket is not connected");
    return false;
  }
  if (!sendHeld(left.total(), call)) return false;
  const std::size_t before = buffer.size();
  for (;;) {
    std::string token;
    std::size_t extra = 0;
    const SecurityStatus status = stream_->decrypt(encrypted_, buffer, token, extra);
    keepExtra(extra);
    if (!sendToken(token, left.total(), call)) return false;
    peerHasClosed_ = peerHasClosed_ || status == SecurityStatus::ContextExpired;
    if (status == SecurityStatus::Renegotiate &&
        (!handshake(left, call) || !sendHeld(left.total(), call))) {
      return false;
    }
    if (buffer.size() > before) return true;
    if (peerHasClosed_) {
      status_.peerClosed = true;
      call.log.LogError("Connection closed by server.");
      return false;
    }
    if (status == SecurityStatus::Failed) {
      call.log.LogError("Failed to receive data on the TCP socket");
      call.log.LogData("tls_error", base::loggable(stream_->failureText()));
      status_.problem = base::loggableLine(stream_->failureText());
      return false;
    }
    if (status == SecurityStatus::Renegotiate) continue;  // what follows it may be here already
    if (left.remaining() == 0) {
      logReadTimeout(left, call);
      return false;
    }
    if (!readEncrypted(left, call)) return false;
  }
}

bool SChannel::sendCloseNotify(std::uint32_t timeoutMs, Call& call) {
  if (stream_ == nullptr) {
    call.log.LogError("Cannot shutdown channel, no context exists");
    return false;
  }
  std::string token = std::exchange(held_, {});
  const platform::CloseNotify made = stream_->shutdown(token);
  if (made != platform::CloseNotify::Made) {
    call.log.LogError(made == platform::CloseNotify::NotAccepted
                          ? "Error in ApplyControlToken"
                          : "Error returned by InitializeSecurityContext");
    return false;
  }
  if (!sendToken(token, timeoutMs, call)) {
    call.log.LogError("Error sending close notify");
    return false;
  }
  return true;
}

void SChannel::ShutdownChannel(std::uint32_t timeoutMs, Call& call) {
  const base::LogContext context(call.log, "ShutdownChannel");
  call.log.LogInfo("Shutting down SChannel");
  const bool notified = sendCloseNotify(timeoutMs, call);
  if (!notified) call.log.LogInfo("Forcibly closing socket.");
  socket_.close();
  established_ = false;
  call.log.LogInfo("socket shutdown.");
  if (notified) call.log.LogInfo("Secure Channel Shutdown Complete.");
}

}  // namespace kelvado
