#include "net/local_host_name.h"

#include <cstddef>
#include <mutex>
#include <string_view>

#include "base/ascii.h"
#include "platform/network/socket_api.h"

namespace kelvado {
namespace {

constexpr std::size_t kMaxHostName = 500;
constexpr std::string_view kUnknownHost = "unknown";

// Only what may stand in angle brackets in a header.
std::string asHostName(std::string_view name) {
  std::string out;
  for (const char c : name.substr(0, kMaxHostName)) {
    const char lower = base::lowerAscii(c);
    if ((lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '-' ||
        c == '_') {
      out.push_back(c);
    }
  }
  return out;
}

}  // namespace

std::string readLocalHostName(platform::SocketApi& sockets, base::LogBase& log) {
  if (sockets.start() != platform::kSocketOk) {
    log.LogError("WSA startup failed for getting local hostname");
    return std::string(kUnknownHost);
  }
  std::string name;
  if (sockets.hostName(name) == platform::kSocketOk) {
    platform::ResolvedHost host;
    if (sockets.resolve(name, host) == platform::kSocketOk) name = host.officialName;
  }
  name = asHostName(name);
  return name.empty() ? std::string(kUnknownHost) : name;
}

std::string localHostName(base::LogBase& log) {
  static std::mutex mutex;
  static std::string known;
  const std::lock_guard lock(mutex);
  if (known.empty()) {
    std::string name = readLocalHostName(platform::systemSockets(), log);
    if (name == kUnknownHost) return name;  // asked again next time
    known = std::move(name);
  }
  return known;
}

}  // namespace kelvado
