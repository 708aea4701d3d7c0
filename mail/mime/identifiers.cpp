#include "mail/mime/identifiers.h"

#include <cstdint>
#include <mutex>

#include "base/ascii.h"
#include "mail/core/data_buffer.h"
#include "mail/core/string_buffer.h"
#include "platform/network/socket_api.h"
#include "platform/system/random.h"

namespace kelvado {
namespace {

constexpr std::size_t kMaxHostName = 500;
constexpr std::uint32_t kIdentifierReserve = 20000;  // bytes, for the making of an identifier
constexpr std::string_view kUnknownHost = "unknown";

// The name stands inside angle brackets in a header.
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

std::string makeId(std::string_view kind, base::LogBase& log) {
  return "<KELVADO-" + std::string(kind) + "-" + KelvadoUuid::generate() + "@" +
         localHostName(log) + ">";
}

}  // namespace

std::string KelvadoUuid::generate() {
  DataBuffer bytes;
  bytes.reserve(kIdentifierReserve);
  for (int draw = 0; draw < 4; ++draw) bytes.appendUint32(platform::random32());
  StringBuffer hex;
  hex.appendHex(bytes);
  hex.toLowerCase();
  std::string identifier(hex.view());
  for (const std::size_t dash : {8, 13, 18, 23}) identifier.insert(dash, 1, '-');
  return identifier;
}

std::string boundaryFrom(std::string_view identifier, std::string_view marker) {
  std::string boundary = "-----_kelvado_";
  boundary.append(identifier.substr(0, 3)).append("_");
  boundary.append(identifier.substr(3, 4)).append("_");
  boundary.append(identifier.substr(9, 4)).append(identifier.substr(14, 4)).append(".");
  boundary.append(identifier.substr(24, 8)).append(marker);
  return boundary;
}

std::string generateBoundary(std::string_view marker) {
  return boundaryFrom(KelvadoUuid::generate(), marker);
}

std::string generateMessageId(base::LogBase& log) {
  return makeId("MID", log);
}

std::string generateContentId(base::LogBase& log) {
  return makeId("CID", log);
}

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
  // Once a process: a slow resolver must not cost a look-up for every mail.
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
