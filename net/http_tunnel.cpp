#include "net/http_tunnel.h"

#include <string_view>

namespace kelvado {
namespace {

constexpr std::size_t kMaxReplyBytes =
    16'384;  // head of a proxy's reply; common servers allow 8 KB

// "HTTP/1.1 200 ..."
bool isSuccess(std::string_view reply) {
  const std::size_t blank = reply.find(' ');
  return reply.starts_with("HTTP/") && blank != std::string_view::npos &&
         reply.substr(blank + 1).starts_with('2');
}

}  // namespace

bool openHttpTunnel(ByteChannel& proxy, const std::string& host, std::uint16_t port,
                    std::uint32_t timeoutMs, Call& call) {
  const std::string request =
      "CONNECT " + host + ":" + std::to_string(port) + " HTTP/1.0\r\nUser-Agent: Kelvado\r\n\r\n";
  if (!proxy.sendBytes(request, timeoutMs, call)) return false;
  std::string reply;
  const Countdown left(timeoutMs, call.progress.clock());
  if (!proxy.readUntilMatch("\r\n\r\n", reply, {left, kMaxReplyBytes}, call)) {
    call.log.LogError("Error receiving message from proxy server");
    return false;
  }
  if (isSuccess(reply)) return true;
  call.log.LogError("The proxy server refuses the tunnel.");
  return false;
}

}  // namespace kelvado
