#include "console/smtp_catcher.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <list>
#include <system_error>

#include "base/ascii.h"
#include "platform/system/files.h"

namespace console {
namespace {

using platform::SocketApi;
using platform::systemSockets;

constexpr std::size_t kMaxCommandBytes = 4096;
constexpr std::size_t kMaxMessageBytes = 64U * 1024 * 1024;
constexpr std::size_t kMaxRecipients = 1000;
constexpr std::size_t kMaxConversations = 32;
constexpr int kMaxWrongCommands = 50;  // of one client, which is none of SMTP then
// How soon a thread notices that the catcher is to stop.
constexpr std::uint32_t kStopSliceMs = 20;
constexpr std::uint32_t kIdleSlices = 300 * 1000 / kStopSliceMs;  // five minutes (RFC 5321 4.5.3.2)

constexpr std::string_view kEndOfData = "\r\n.\r\n";

// The address between '<' and '>' of MAIL FROM and RCPT TO. False when there are no such brackets.
bool bracketedAddress(std::string_view argument, std::string& address) {
  const std::size_t open = argument.find('<');
  const std::size_t close = argument.find('>', open == std::string_view::npos ? 0 : open);
  if (open == std::string_view::npos || close == std::string_view::npos) return false;
  address = argument.substr(open + 1, close - open - 1);
  return std::none_of(address.begin(), address.end(),
                      [](char c) { return static_cast<unsigned char>(c) < 0x20; });
}

// The dialogue with one client: bytes in, replies out, no network.
class Dialogue {
 public:
  // `save` is given each complete mail; it says whether it could be saved.
  Dialogue(const std::vector<std::string>& refused, std::function<bool(const std::string&)> save)
      : refused_(refused), save_(std::move(save)) {}

  // Takes what has arrived, in whatever portions; appends the replies to it.
  void feed(std::string_view bytes, std::string& replies) {
    input_.append(bytes);
    while (!ended_ && (inData_ ? takeData(replies) : takeCommand(replies))) continue;
  }
  bool ended() const { return ended_; }

 private:
  bool takeCommand(std::string& replies);
  bool takeData(std::string& replies);
  void answer(const std::string& line, std::string& replies);
  void mailFrom(std::string_view argument, std::string& replies);
  void rcptTo(std::string_view argument, std::string& replies);
  void endData(std::string_view text, std::string& replies);
  void reset();

  const std::vector<std::string>& refused_;
  std::function<bool(const std::string&)> save_;
  std::string input_;
  bool ended_ = false;
  bool inData_ = false;
  bool oversized_ = false;
  std::size_t searched_ = 0;  // of input_, while in DATA
  bool hasSender_ = false;
  std::string sender_;
  std::vector<std::string> recipients_;
  int wrongCommands_ = 0;
};

void Dialogue::reset() {
  hasSender_ = false;
  sender_.clear();
  recipients_.clear();
}

bool Dialogue::takeCommand(std::string& replies) {
  const std::size_t end = input_.find("\r\n");
  if (std::min(end, input_.size()) > kMaxCommandBytes) {
    replies += "500 5.5.2 Line too long\r\n";
    ended_ = true;
    return false;
  }
  if (end == std::string::npos) return false;
  const std::string line = input_.substr(0, end);
  input_.erase(0, end + 2);
  answer(line, replies);
  return true;
}

void Dialogue::answer(const std::string& line, std::string& replies) {
  if (base::beginsWithNoCase(line, "MAIL FROM:")) return mailFrom(line, replies);
  if (base::beginsWithNoCase(line, "RCPT TO:")) return rcptTo(line, replies);
  if (base::beginsWithNoCase(line, "EHLO ")) {
    reset();
    replies +=
        "250-catcher\r\n250-8BITMIME\r\n250 SIZE " + std::to_string(kMaxMessageBytes) + "\r\n";
  } else if (base::beginsWithNoCase(line, "HELO ")) {
    reset();
    replies += "250 catcher\r\n";
  } else if (base::equalsNoCase(line, "RSET")) {
    reset();
    replies += "250 2.0.0 Reset\r\n";
  } else if (base::equalsNoCase(line, "NOOP")) {
    replies += "250 2.0.0 Ok\r\n";
  } else if (base::equalsNoCase(line, "QUIT")) {
    replies += "221 2.0.0 Bye\r\n";
    ended_ = true;
  } else if (base::equalsNoCase(line, "DATA") && !recipients_.empty()) {
    replies += "354 End with a line of one dot\r\n";
    inData_ = true;
    oversized_ = false;
    // The line end of the command counts as the one before the terminator of an empty mail.
    input_.insert(0, "\r\n");
    searched_ = 0;
  } else if (base::equalsNoCase(line, "DATA")) {
    replies += "503 5.5.1 No recipients\r\n";
  } else {
    replies += "502 5.5.1 Not offered here\r\n";
    ended_ = ++wrongCommands_ >= kMaxWrongCommands;
  }
}

void Dialogue::mailFrom(std::string_view argument, std::string& replies) {
  std::string address;
  if (hasSender_) {
    replies += "503 5.5.1 Sender given already\r\n";
  } else if (!bracketedAddress(argument, address)) {
    replies += "501 5.1.7 Bad sender\r\n";
  } else {
    hasSender_ = true;
    sender_ = address;
    replies += "250 2.1.0 Ok\r\n";
  }
}

void Dialogue::rcptTo(std::string_view argument, std::string& replies) {
  std::string address;
  const auto isThis = [&address](const std::string& one) {
    return base::equalsNoCase(one, address);
  };
  if (!hasSender_) {
    replies += "503 5.5.1 No sender\r\n";
  } else if (!bracketedAddress(argument, address) || address.empty()) {
    replies += "501 5.1.3 Bad recipient\r\n";
  } else if (recipients_.size() >= kMaxRecipients) {
    replies += "452 4.5.3 Too many recipients\r\n";
  } else if (std::any_of(refused_.begin(), refused_.end(), isThis)) {
    replies += "550 5.1.1 Recipient refused\r\n";
  } else {
    recipients_.push_back(address);
    replies += "250 2.1.5 Ok\r\n";
  }
}

bool Dialogue::takeData(std::string& replies) {
  const std::size_t end = input_.find(kEndOfData, searched_);
  const bool found = end != std::string::npos;
  if (std::min(end, input_.size()) > kMaxMessageBytes) oversized_ = true;
  if (!found) {
    // Of a message that is refused anyway only what may be half a terminator is kept.
    const std::size_t keep = kEndOfData.size() - 1;
    if (oversized_ && input_.size() > keep) input_.erase(0, input_.size() - keep);
    searched_ = input_.size() > keep ? input_.size() - keep : 0;
    return false;
  }
  // Without the line end put in front, with the one that the terminator begins with.
  endData(oversized_ || end == 0 ? std::string_view() : std::string_view(input_).substr(2, end),
          replies);
  input_.erase(0, end + kEndOfData.size());
  inData_ = false;
  reset();
  return true;
}

void Dialogue::endData(std::string_view text, std::string& replies) {
  if (oversized_) {
    replies += "552 5.3.4 Message too big\r\n";
    return;
  }
  std::string mail = "X-Envelope-From: <" + sender_ + ">\r\n";
  for (const std::string& recipient : recipients_) mail += "X-Envelope-To: <" + recipient + ">\r\n";
  while (!text.empty()) {  // line by line, without the dot that a dot at its beginning got
    if (text.front() == '.') text.remove_prefix(1);
    const std::size_t end = text.find("\r\n");
    const std::size_t size = end == std::string_view::npos ? text.size() : end + 2;
    mail.append(text.substr(0, size));
    text.remove_prefix(size);
  }
  replies += save_(mail) ? "250 2.0.0 Saved\r\n" : "451 4.3.0 Cannot save the mail\r\n";
}

}  // namespace

SmtpCatcher::~SmtpCatcher() {
  stop();
}

bool SmtpCatcher::start(const CatcherOptions& options, std::string& error) {
  stop();
  options_ = options;
  if (options_.directory.empty()) options_.directory = ".";
  if (!platform::createDirectory(options_.directory)) {
    error = options_.directory + ": cannot make the directory";
    return false;
  }
  systemSockets().start();
  port_ = options_.port;
  platform::SocketError socketError = platform::kSocketOk;
  listener_ = systemSockets().listenOnLoopback(port_, socketError);
  if (listener_ == platform::kInvalidSocket) {
    error = "127.0.0.1:" + std::to_string(port_) + ": cannot listen there (error " +
            std::to_string(socketError) + ")";
    return false;
  }
  stop_ = false;
  thread_ = std::thread([this] { serve(); });
  return true;
}

void SmtpCatcher::stop() {
  stop_ = true;
  if (thread_.joinable()) thread_.join();
  if (listener_ != platform::kInvalidSocket) systemSockets().close(listener_);
  listener_ = platform::kInvalidSocket;
}

void SmtpCatcher::serve() {
  struct Client {
    std::thread thread;
    std::atomic<bool> done{false};
  };
  std::list<Client> clients;
  while (!stop_) {
    platform::SocketError error = platform::kSocketOk;
    if (systemSockets().waitReadable(listener_, kStopSliceMs, error) != SocketApi::Ready::Yes) {
      continue;
    }
    clients.remove_if([](Client& client) {
      if (client.done) client.thread.join();
      return !client.thread.joinable();
    });
    const platform::SocketHandle socket = systemSockets().accept(listener_, error);
    if (socket == platform::kInvalidSocket) continue;
    if (clients.size() >= kMaxConversations) {
      dismiss(socket);
      continue;
    }
    Client& client = clients.emplace_back();
    try {
      client.thread = std::thread([this, socket, &client] {
        converse(socket);
        client.done = true;
      });
    } catch (const std::system_error&) {
      clients.pop_back();
      dismiss(socket);
    }
  }
  for (Client& client : clients) client.thread.join();
}

void SmtpCatcher::dismiss(platform::SocketHandle socket) {
  sendAll(socket, "421 4.3.2 Too many connections\r\n");
  systemSockets().close(socket);
}

void SmtpCatcher::converse(platform::SocketHandle socket) {
  SocketApi& sockets = systemSockets();
  Dialogue dialogue(options_.refusedRecipients,
                    [this](const std::string& mail) { return save(mail); });
  bool alive = sendAll(socket, "220 catcher ESMTP\r\n");
  std::vector<char> chunk(64 * 1024);
  std::uint32_t idle = 0;
  while (alive && !stop_ && !dialogue.ended() && idle < kIdleSlices) {
    platform::SocketError error = platform::kSocketOk;
    if (sockets.waitReadable(socket, kStopSliceMs, error) == SocketApi::Ready::TimedOut) {
      ++idle;
      continue;
    }
    std::size_t count = 0;
    error = sockets.receive(socket, chunk.data(), chunk.size(), count);
    if (error == platform::kWsaWouldBlock) continue;
    if (error != platform::kSocketOk || count == 0) break;
    idle = 0;
    std::string replies;
    dialogue.feed({chunk.data(), count}, replies);
    alive = sendAll(socket, replies);
  }
  sockets.close(socket);
}

bool SmtpCatcher::sendAll(platform::SocketHandle socket, std::string_view bytes) const {
  for (std::uint32_t idle = 0; !bytes.empty() && !stop_ && idle < kIdleSlices;) {
    std::size_t count = 0;
    platform::SocketError error = systemSockets().send(socket, bytes, count);
    bytes.remove_prefix(count);
    if (error == platform::kWsaWouldBlock) {
      ++idle;
      systemSockets().waitWritable(socket, kStopSliceMs, error);
    } else if (error != platform::kSocketOk) {
      return false;
    }
  }
  return bytes.empty();
}

bool SmtpCatcher::save(const std::string& mail) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::string name;
  do {  // what an earlier catcher left in the directory stays
    char number[16];
    std::snprintf(number, sizeof number, "%04u", ++lastNumber_);
    name = options_.directory + "/" + number + ".eml";
  } while (platform::fileExists(name));
  if (!platform::replaceFileAtomically(name, mail)) return false;
  savedFiles_.push_back(name);
  return true;
}

std::vector<std::string> SmtpCatcher::savedFiles() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return savedFiles_;
}

}  // namespace console
