// The name of this machine, for the identifiers of messages. May be used by several threads.
#pragma once

#include <string>

#include "base/log_base.h"

namespace platform {
class SocketApi;
}

namespace kelvado {

// The official name of this machine, else its plain one, else "unknown"; at most 500 bytes, nothing
// in it but letters, digits, '.', '-' and '_'. Blocks for as long as the resolver takes.
std::string readLocalHostName(platform::SocketApi& sockets, base::LogBase& log);
// The same with the system's sockets. Once known it is kept for the life of the process: a slow
// resolver must not cost a look-up for every mail.
std::string localHostName(base::LogBase& log);

}  // namespace kelvado
