// Commands out, replies in: the line level of an SMTP session, over a plain socket or over TLS.
// Logs every command and reply, except what would show a secret. Keeps count of the replies that
// the server owes: what it sends before it was asked is never taken for one of them. Blocks up to
// the read time-out for each step; used by one thread at a time.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/log_base.h"
#include "mail/smtp/smtp_failure.h"
#include "mail/smtp/smtp_reply.h"
#include "net/call.h"
#include "net/kelvado_socket.h"
#include "net/schannel.h"

namespace kelvado {

// The read time-out as it takes effect, in milliseconds. 0 means the longest on a plain connection,
// but one second under TLS, where it is cut to whole seconds. The difference is intended.
std::uint32_t effectiveReadTimeoutMs(std::uint64_t configuredMs, bool secure);

struct HttpProxy {
  std::string host;  // empty: none, the server is reached directly
  int port = 8080;

  bool operator==(const HttpProxy&) const = default;
};

class SmtpWire {
 public:
  enum class ReplyLog { Text, CodeOnly };  // CodeOnly while authenticating

  explicit SmtpWire(platform::SocketApi& sockets) : socket_(sockets) {}

  // connectTimeoutMs 0: the socket's own default.
  bool connect(const std::string& host, std::uint16_t port, const HttpProxy& proxy,
               std::uint32_t connectTimeoutMs, Call& call);
  // The TLS handshake over the open connection. Fails when the server has said anything before it.
  bool secure(const std::string& host, std::uint16_t port, const TlsRequirements& requirements,
              Call& call);
  void close();
  // As close, but with a close notify when the connection is secure.
  void shutdown(Call& call);
  bool isOpen() const { return socket_.isConnected(); }
  bool isSecure() const { return isOpen() && secureChannel_ != nullptr; }
  // PEM; empty without TLS.
  // The server's, of the last handshake, also when it was refused; empty without one.
  const platform::PeerCertificate& peerCertificate() const { return peer_; }
  std::string serverCertificate() const {
    return isSecure() ? secureChannel_->certificate().pem : std::string();
  }
  const std::string& host() const { return host_; }  // the server, not its proxy
  // Dotted, of this side of the open connection; empty when not known.
  std::string localAddress() const { return socket_.localAddress(); }
  // To be called before a connection is used again: finds what the server has sent meanwhile.
  void receiveArrived() { channel().receiveArrived(); }
  void setReadTimeout(std::uint64_t configuredMs) { configuredReadTimeoutMs_ = configuredMs; }

  // One line; CR LF is added.
  bool sendCommand(std::string_view command, Call& call);
  // Several at once: the replies come one by one, in the same order.
  bool sendCommands(std::span<const std::string> commands, Call& call);
  // As sendCommand, but nothing of it is logged; its last word is a secret from then on.
  bool sendSecret(std::string_view line, Call& call);
  // Keeps the text out of the log, whatever the server repeats, over later connections as well.
  void keepSecret(std::string_view secret);
  // A piece of a message's text; a reply follows the last one.
  bool sendText(std::string_view bytes, bool isLast, Call& call);

  // Reads one whole reply. True only when its code is exactly `expected`: 251 is not 250.
  bool readReply(int expected, Call& call, ReplyLog replyLog = ReplyLog::Text);
  // The reply to EHLO, for the caller to log. Nothing when it is not 250 in every line or did not
  // come.
  std::optional<SmtpExtensions> readEhloReply(Call& call);

  // Of the last reply; kNoReplyCode when none came, or one that is no reply.
  int replyCode() const { return reply_.code(); }
  const std::string& replyText() const { return reply_.text(); }
  // For the log: the text, or the code alone when the server repeats a secret in it.
  std::string loggableReply() const;
  // Any other text of the server for the log: not shown when it repeats a secret.
  std::string loggableText(std::string_view text) const;
  // The last reply was cut off or never came, or one came that nobody had asked for: what comes
  // next may belong to anything. The session must not go on with this connection.
  bool outOfStep() const { return outOfStep_; }

  // Keeps why the operation failed at this step: by the last reply, or else by what the connection
  // or this class says. To be called before the connection is closed. The last one counts.
  void noteFailure(SmtpStep step);
  // The same, by a reason that is neither; one line, no secret.
  void noteFailure(SmtpStep step, const std::string& reason);
  const SmtpFailure& failure() const { return failure_; }
  void clearFailure() { failure_ = {}; }

  bool timedOut() const { return timedOut_; }
  void clearTimedOut() { timedOut_ = false; }

 private:
  ByteChannel& channel() {
    if (secureChannel_ != nullptr) return *secureChannel_;
    return socket_;
  }
  std::uint32_t readTimeoutMs() const {
    return effectiveReadTimeoutMs(configuredReadTimeoutMs_, isSecure());
  }
  bool repeatsSecret(std::string_view text) const;
  bool receiveReply(SmtpReply::Ending ending, Call& call);
  bool sendLine(std::string_view line, Call& call);
  // `replies`: how many the server owes for the bytes.
  bool send(std::string_view bytes, std::size_t replies, Call& call);
  void logReadFailure(Call& call);
  void noteStatus() { timedOut_ = timedOut_ || channel().status().timedOut; }

  KelvadoSocket socket_;
  std::string host_;
  std::uint16_t port_ = 0;
  SmtpFailure failure_;
  platform::PeerCertificate peer_;
  std::string problem_;  // with the last reply or send that failed, when it is not the network's
  std::unique_ptr<SChannel> secureChannel_;  // over socket_; null: plain
  std::deque<std::string> secrets_;
  std::uint64_t configuredReadTimeoutMs_ = 30'000;
  SmtpReply reply_;
  std::size_t owedReplies_ = 0;
  bool outOfStep_ = false;
  bool timedOut_ = false;
};

}  // namespace kelvado
