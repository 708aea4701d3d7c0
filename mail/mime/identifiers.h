// The values a message is told apart by: unique identifiers, boundaries, Message-ID and Content-ID.
// May be used by several threads.
#pragma once

#include <string>
#include <string_view>

#include "base/log_base.h"

namespace platform {
class SocketApi;
}

namespace kelvado {

class KelvadoUuid {
 public:
  // 36 characters: lower-case hexadecimal in groups of 8, 4, 4, 4 and 12 with '-' between them.
  static std::string generate();
};

// The markers that tell a container's boundary.
inline constexpr std::string_view kAlternativeMarker = "_.ALT";
inline constexpr std::string_view kRelatedMarker = "_.REL";
inline constexpr std::string_view kMixedMarker = "_.MIX";

// Different each time.
std::string generateBoundary(std::string_view marker);
// What an identifier makes of it.
std::string boundaryFrom(std::string_view identifier, std::string_view marker);

std::string generateMessageId(base::LogBase& log);  // "<KELVADO-MID-...@host>"
std::string generateContentId(base::LogBase& log);  // "<KELVADO-CID-...@host>"

// The official name of this machine, else its plain one, else "unknown"; at most 500 bytes, nothing
// in it but letters, digits, '.', '-' and '_'. The first blocks for as long as the resolver takes,
// the second asks it once a process.
std::string readLocalHostName(platform::SocketApi& sockets, base::LogBase& log);
std::string localHostName(base::LogBase& log);

}  // namespace kelvado
