#include "mail/smtp/smtp_wire.h"

#include <algorithm>

#include "base/text.h"
#include "mail/smtp/wire_text.h"
#include "net/http_tunnel.h"

namespace kelvado {
namespace {

constexpr std::uint64_t kEndlessReadTimeoutMs = 21'600'000;
constexpr std::uint64_t kMaxReadTimeoutMs = 5'000'000;

// The latest: some methods make new ones at each login.
constexpr std::size_t kMaxSecrets = 32;
// Logged in place of a text that holds one.
constexpr const char* kHidden = "(not shown: it repeats what logs in)";

// A whole reply by RFC 5321 section 4.2, but not by the rules of this session.
bool isBareCode(std::string_view line) {
  return line.size() == 5 && line.find_first_not_of("0123456789") == 3;
}

}  // namespace

std::uint32_t effectiveReadTimeoutMs(std::uint64_t configuredMs, bool secure) {
  std::uint64_t ms = configuredMs;
  if (secure) ms = std::max<std::uint64_t>(1, ms / 1000) * 1000;
  if (ms == 0) ms = kEndlessReadTimeoutMs;
  return static_cast<std::uint32_t>(std::min(ms, kMaxReadTimeoutMs));
}

bool SmtpWire::connect(const std::string& host, std::uint16_t port, const HttpProxy& proxy,
                       std::uint32_t connectTimeoutMs, Call& call) {
  close();
  peer_ = {};
  timedOut_ = false;
  reply_ = SmtpReply();
  problem_.clear();
  host_ = host;
  port_ = port;
  const bool direct = proxy.host.empty();
  const std::string& peer = direct ? host : proxy.host;
  const std::uint16_t peerPort = direct ? port : static_cast<std::uint16_t>(proxy.port);
  bool connected = socket_.connect(peer.c_str(), peerPort, connectTimeoutMs, call);
  if (!connected) noteFailure(SmtpStep::Connect);
  if (connected && !direct) {
    connected = openHttpTunnel(socket_, host, port, readTimeoutMs(), call);
    const IoStatus& status = socket_.status();
    const bool refused = !status.timedOut && !status.aborted && !status.peerClosed &&
                         status.error == platform::kSocketOk;
    if (!connected) {
      noteFailure(SmtpStep::Proxy, refused ? "it refuses the connection" : ioFailureText(status));
    }
  }
  noteStatus();
  owedReplies_ = 1;  // the greeting
  return connected;
}

bool SmtpWire::secure(const std::string& host, std::uint16_t port,
                      const TlsRequirements& requirements, Call& call) {
  // What is there in the clear behind the reply to STARTTLS may come from anybody on the way.
  if (owedReplies_ == 0) {
    socket_.receiveArrived();
    if (!socket_.unreadBytes().empty()) {
      call.log.LogError("The server sent data before the TLS handshake.");
      noteFailure(SmtpStep::StartTls, "the server sent data before the TLS handshake");
      return false;
    }
  }
  auto channel = std::make_unique<SChannel>(socket_);
  const std::uint32_t timeoutMs = effectiveReadTimeoutMs(configuredReadTimeoutMs_, true);
  const bool established = channel->EstablishChannel(host, port, requirements, timeoutMs, call);
  timedOut_ = timedOut_ || channel->status().timedOut;
  peer_ = channel->certificate();
  if (established) {
    secureChannel_ = std::move(channel);
  } else {
    const SmtpStep step =
        channel->refusedCertificate() ? SmtpStep::Certificate : SmtpStep::TlsHandshake;
    noteFailure(step, ioFailureText(channel->status()));
    failure_.timedOut = channel->status().timedOut;
  }
  return established;
}

void SmtpWire::close() {
  secureChannel_.reset();
  socket_.close();
  owedReplies_ = 0;
  outOfStep_ = false;
}

void SmtpWire::shutdown(Call& call) {
  if (isSecure()) secureChannel_->ShutdownChannel(readTimeoutMs(), call);
  close();
}

bool SmtpWire::sendCommand(std::string_view command, Call& call) {
  call.log.LogData("command", base::loggable(command));
  return sendLine(command, call);
}

bool SmtpWire::sendCommands(std::span<const std::string> commands, Call& call) {
  std::string bytes;
  for (const std::string& command : commands) {
    call.log.LogData("command", base::loggable(command));
    bytes.append(command).append("\r\n");
  }
  return send(bytes, commands.size(), call);
}

bool SmtpWire::sendSecret(std::string_view line, Call& call) {
  keepSecret(line.substr(line.rfind(' ') + 1));
  return sendLine(line, call);
}

void SmtpWire::keepSecret(std::string_view secret) {
  // Base64 can be decoded without its padding.
  const std::size_t last = secret.find_last_not_of('=');
  if (last != std::string_view::npos) secret = secret.substr(0, last + 1);
  if (secret.empty()) return;
  std::erase(secrets_, secret);
  if (secrets_.size() == kMaxSecrets) secrets_.pop_front();
  secrets_.emplace_back(secret);
}

bool SmtpWire::sendLine(std::string_view line, Call& call) {
  std::string bytes;
  bytes.reserve(line.size() + 2);
  return send(bytes.append(line).append("\r\n"), 1, call);
}

bool SmtpWire::sendText(std::string_view bytes, bool isLast, Call& call) {
  return send(bytes, isLast ? 1 : 0, call);
}

bool SmtpWire::send(std::string_view bytes, std::size_t replies, Call& call) {
  if (owedReplies_ == 0 && !channel().unreadBytes().empty()) {
    const std::string_view early = channel().unreadBytes();
    call.log.LogError("The SMTP server replied before it was asked.");
    problem_ = "the server replied before it was asked";
    call.log.LogData("reply", loggableText(early));
    reply_ = SmtpReply();
    outOfStep_ = true;
    return false;
  }
  owedReplies_ += replies;
  const bool sent = channel().sendBytes(bytes, readTimeoutMs(), call);
  if (!sent) reply_ = SmtpReply();  // the one before is not the reply to this
  noteStatus();
  return sent;
}

bool SmtpWire::readReply(int expected, Call& call, ReplyLog replyLog) {
  if (!receiveReply(SmtpReply::Ending::NoHyphen, call)) return false;
  if (replyLog == ReplyLog::CodeOnly) {
    call.log.LogData("reply_code", std::to_string(replyCode()));
  } else {
    call.log.LogData("reply", loggableReply());
  }
  return replyCode() == expected;
}

bool SmtpWire::repeatsSecret(std::string_view text) const {
  return std::any_of(secrets_.begin(), secrets_.end(), [text](const std::string& secret) {
    return text.find(secret) != std::string_view::npos;
  });
}

std::string SmtpWire::loggableReply() const {
  return repeatsSecret(replyText()) ? std::to_string(replyCode()) : base::loggable(replyText());
}

std::string SmtpWire::loggableText(std::string_view text) const {
  return repeatsSecret(text) ? kHidden : base::loggable(text);
}

std::optional<SmtpExtensions> SmtpWire::readEhloReply(Call& call) {
  if (!receiveReply(SmtpReply::Ending::Blank, call)) return std::nullopt;
  return parseEhloReply(replyText());
}

bool SmtpWire::receiveReply(SmtpReply::Ending ending, Call& call) {
  reply_ = SmtpReply(ending);
  problem_.clear();
  outOfStep_ = true;
  // One time-out for the whole reply: a server that sends line after line does not prolong it.
  const Countdown left(readTimeoutMs(), call.progress.clock());
  for (;;) {
    std::string line;
    if (!channel().readUntilMatch("\r\n", line, {left, kMaxReplyLineBytes}, call)) {
      noteStatus();
      logReadFailure(call);
      return false;
    }
    switch (reply_.addLine(line)) {
      case SmtpReply::Progress::More:
        break;
      case SmtpReply::Progress::Complete:
        outOfStep_ = false;
        owedReplies_ -= owedReplies_ > 0;
        return true;
      case SmtpReply::Progress::Unrecognized:
        // A reply of one line, however short, is still a whole one.
        outOfStep_ = reply_.text().size() > line.size() && !isBareCode(line);
        owedReplies_ -= !outOfStep_ && owedReplies_ > 0;
        call.log.LogError("Unrecognized response from SMTP server");
        call.log.LogData("line", loggableText(line));
        problem_ = "the server's reply is not one of SMTP";
        return false;
      case SmtpReply::Progress::TooLong:
        call.log.LogError("The SMTP server's reply is longer than allowed.");
        problem_ = "the server's reply is longer than allowed";
        return false;
    }
  }
}

void SmtpWire::noteFailure(SmtpStep step) {
  const bool replied = problem_.empty() && replyCode() > 0;
  if (replied) {
    noteFailure(step, oneLine(loggableReply()));
    failure_.replyCode = replyCode();
    return;
  }
  if (problem_.empty() && replyCode() == kBadReplyCode) {
    problem_ = "the server's reply is not one of SMTP";
  }
  const IoStatus& status = channel().status();
  noteFailure(step, problem_.empty() ? ioFailureText(status) : problem_);
  failure_.timedOut = status.timedOut;
}

void SmtpWire::noteFailure(SmtpStep step, const std::string& reason) {
  failure_ = {step, 0, false, reason, {}};
  if (!host_.empty()) failure_.server = base::loggableLine(host_) + ":" + std::to_string(port_);
}

void SmtpWire::logReadFailure(Call& call) {
  const IoStatus& status = channel().status();
  if (status.aborted) {
    call.log.LogError("Application aborted SMTP operation prior to receiving response.");
  } else if (status.timedOut) {
    call.log.LogError("ReadTimeout expired, abandoning attempt to retrieve SMTP response.");
  } else {
    call.log.LogError("Failed to get SMTP command response...");
  }
}

}  // namespace kelvado
