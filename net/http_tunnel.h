// A tunnel through an HTTP proxy (CONNECT, RFC 9110 section 9.3.6): what is sent afterwards reaches
// the server behind it. Used by the mail session right after it has connected to the proxy.
#pragma once

#include <cstdint>
#include <string>

#include "net/byte_channel.h"

namespace kelvado {

// `host` holds no blanks and no control characters. timeoutMs is for the proxy's whole reply, of
// which at most 16 KB are read. False, logged, unless the proxy answers with a 2xx status.
bool openHttpTunnel(ByteChannel& proxy, const std::string& host, std::uint16_t port,
                    std::uint32_t timeoutMs, Call& call);

}  // namespace kelvado
