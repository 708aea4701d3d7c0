// Host names to addresses, with the time-out and the abort that the system's resolver lacks.
// Used by KelvadoSocket.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "net/call.h"
#include "platform/network/socket_api.h"

namespace kelvado {

// Four decimal numbers of 0..255 with dots between them.
bool isDottedAddress(const std::string& text);

// Fills `addresses` with at least one dotted address, or logs why not and sets `aborted` or
// `timedOut` when that is the reason. The look-up runs in a thread of its own, which goes on after
// a time-out, so `api` must live as long as the process.
struct LookupResult {
  std::vector<std::string> addresses;
  bool timedOut = false;
  bool aborted = false;
};
bool resolveHost(platform::SocketApi& api, const std::string& host, std::uint32_t timeoutMs,
                 LookupResult& result, Call& call);

}  // namespace kelvado
