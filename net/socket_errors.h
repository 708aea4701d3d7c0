// Winsock error numbers in words, for the log. Used by the sockets of this folder.
#pragma once

#include "base/log_base.h"
#include "platform/network/socket_api.h"

namespace kelvado {

// Logs the text of the error under "SocketError", and a hint after it where one helps.
void logSocketError(platform::SocketError code, base::LogBase& log);

}  // namespace kelvado
