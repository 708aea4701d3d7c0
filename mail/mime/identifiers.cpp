#include "mail/mime/identifiers.h"

#include <cstdint>

#include "mail/core/data_buffer.h"
#include "mail/core/string_buffer.h"
#include "net/local_host_name.h"
#include "platform/system/random.h"

namespace kelvado {
namespace {

constexpr std::uint32_t kIdentifierReserve = 20000;  // bytes, while an identifier is made

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

}  // namespace kelvado
