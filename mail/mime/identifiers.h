// Unique values of a message: identifiers, boundaries, Message-ID and Content-ID.
// May be used by several threads.
#pragma once

#include <string>
#include <string_view>

#include "base/log_base.h"

namespace kelvado {

class KelvadoUuid {
 public:
  // 36 characters: lower-case hexadecimal in groups of 8, 4, 4, 4 and 12 with '-' between them.
  static std::string generate();
};

// At the end of a boundary: the kind of container.
inline constexpr std::string_view kAlternativeMarker = "_.ALT";
inline constexpr std::string_view kRelatedMarker = "_.REL";
inline constexpr std::string_view kMixedMarker = "_.MIX";

// Different each time.
std::string generateBoundary(std::string_view marker);
// The boundary that an identifier gives.
std::string boundaryFrom(std::string_view identifier, std::string_view marker);

std::string generateMessageId(base::LogBase& log);  // "<KELVADO-MID-...@host>"
std::string generateContentId(base::LogBase& log);  // "<KELVADO-CID-...@host>"

}  // namespace kelvado
