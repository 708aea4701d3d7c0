// The SMTP session against a server that says anything: it ends, every command is one line, no
// secret gets into the log, and nothing but STARTTLS goes out before TLS that was asked for.
//
// The input in chunks, with the byte 0xFF between them: options (see below), EHLO name, recipient,
// greeting, and then what the server answers to each write of the client.
#include <algorithm>
#include <iterator>
#include <optional>
#include <string>

#include "base/ascii.h"
#include "fuzz/fuzz.h"
#include "mail/core/error_log.h"
#include "mail/smtp/smtp_conn_impl.h"
#include "tests/support/fake_network.h"

using namespace kelvado;

namespace {

constexpr char kSeparator = '\xFF';
constexpr std::size_t kMaxEcho = 8;  // bytes from 1 on repeat what was sent that many writes ago
constexpr std::string_view kPassword = "Tr0ub4dor-and-3";
constexpr std::string_view kToken = "ya29.an-access-token";
constexpr std::string_view kSecrets[] = {kPassword, "VHIwdWI0ZG9yLWFuZC0z",  // LOGIN, PLAIN
                                         "dXNlcgB1c2VyAFRyMHViNGRvci1hbmQtMw", kToken};
constexpr std::string_view kMessage = "Subject: fuzz\r\n\r\n.text\r\n";

// Each write of the client makes the next chunk readable; behind the last one nothing ever comes.
class FakeServer : public test_support::FakeNetwork {
 public:
  FakeServer(std::string_view chunks, test_support::ManualClock& clock)
      : FakeNetwork(clock), chunks_(chunks) {}

  SocketError connect(SocketHandle, const std::string&, std::uint16_t) override {
    return sayNext();
  }
  SocketError send(SocketHandle, std::string_view bytes, std::size_t& count) override {
    count = bytes.size();
    writes.emplace_back(bytes);
    return sayNext();
  }

  std::vector<std::string> writes;

 private:
  SocketError sayNext() {
    incoming.clear();
    std::string answer;
    for (const char c : takeUpTo(kSeparator, chunks_)) {
      const auto ago = static_cast<unsigned char>(c);
      const bool repeats = ago >= 1 && ago <= std::min(kMaxEcho, writes.size());
      repeats ? answer += base::trimmed(writes[writes.size() - ago]) : answer += c;
    }
    if (!answer.empty()) incoming.push_back(answer);
    return platform::kSocketOk;
  }

  std::string_view chunks_;
};

// One line, or what may go out ahead of its replies, or a part of the message.
void requireOneStep(std::string_view write) {
  if (write.starts_with("Subject:") || write.starts_with(".")) return;
  if (write.find('\n') == write.size() - 1) return;
  int recipients = 0;
  int others = 0;
  while (!write.empty()) {
    const std::string_view line = takeUpTo('\n', write);
    const bool isRecipient = line.starts_with("RCPT TO:<");
    require(isRecipient || line == "RSET\r" || line.starts_with("MAIL FROM:<from@x.example>"));
    isRecipient ? ++recipients : ++others;
  }
  require(recipients <= 2 && others <= 2);
}

// Bits: 1 TLS from the first byte, 2 STARTTLS, 4 every recipient apart; then the method.
SmtpServer serverFor(unsigned options, std::string_view helloName) {
  static const char* const kMethods[] = {"",    "LOGIN", "PLAIN",   "CRAM-MD5",   "NTLM",
                                         "MSN", "NONE",  "XOAUTH2", "OAUTHBEARER"};
  constexpr unsigned kFirstWithToken = 7;
  const unsigned method = (options >> 3) % std::size(kMethods);
  SmtpServer server;
  server.host = "127.0.0.1";
  server.ssl = (options & 1) != 0;
  server.startTls = (options & 2) != 0;
  server.credentials = {"user", std::string(kPassword), "", kMethods[method],
                        std::string(method < kFirstWithToken ? "" : kToken)};
  server.helloName = helloName;
  return server;
}

bool namesNtlm(std::string_view text) {
  return base::containsNoCase(text, "NTLM") || base::containsNoCase(text, "MSN");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view input = textOf(data, size);
  const auto isIn = [](std::string_view text) {
    return [text](std::string_view secret) { return text.find(secret) != std::string_view::npos; };
  };
  const std::string_view first = takeUpTo(kSeparator, input);
  const unsigned options = first.empty() ? 0 : static_cast<unsigned char>(first.front());
  const SmtpServer server = serverFor(options, takeUpTo(kSeparator, input));
  std::optional<ForeignLeaks> leaksOfTheSystemsNtlm;  // it never frees its digests
  if (namesNtlm(server.credentials.method) || namesNtlm(input)) leaksOfTheSystemsNtlm.emplace();
  const Envelope envelope{
      "from@x.example", {"to@x.example", std::string(takeUpTo(kSeparator, input))}, {}, {}};
  // What the client itself says may be anything.
  const std::string own = server.helloName + "\n" + envelope.to.back();
  if (std::any_of(std::begin(kSecrets), std::end(kSecrets), isIn(own))) return 0;
  // Nor is a text secret that only the server knows.
  if (!server.credentials.hasToken() && isIn(input)(kToken)) return 0;
  SendOptions sendOptions;
  sendOptions.individual = (options & 4) != 0;

  test_support::ManualClock clock;
  FakeServer network(input, clock);
  ErrorLog log;
  ProgressMonitor progress(nullptr, 0, clock);
  Call call{log, progress};
  SmtpConnImpl session(network);
  for (int mail = 0; mail < 2; ++mail) {
    SendCounters counters;
    MessageText text(kMessage);
    const bool sent = session.prepareToSend(server, call) &&
                      session.sendMime(envelope, text, sendOptions, call, counters);
    require(!sent || counters.accepted > 0);
    require(std::none_of(std::begin(kSecrets), std::end(kSecrets), isIn(session.failure().text)));
    require(!(sent && (server.ssl || server.startTls)));  // no input is a handshake
  }
  session.smtpQuit(call);

  require(std::none_of(std::begin(kSecrets), std::end(kSecrets), isIn(log.text())));
  for (const std::string& write : network.writes) {
    if (!server.ssl && !server.startTls) requireOneStep(write);
    require(!write.starts_with("AUTH XOAUTH2") && !write.starts_with("AUTH OAUTHBEARER"));
    if (server.ssl || server.startTls) {
      require(!write.starts_with("AUTH") && !write.starts_with("MAIL"));
    }
  }
  return 0;
}
