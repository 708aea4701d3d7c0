// Winsock error numbers in words, for the log and for people. Used by the connections of this
// folder.
#pragma once

#include <string>

#include "base/log_base.h"
#include "platform/network/socket_api.h"

namespace kelvado {

// Logs the text of the error under "SocketError", and a hint after it where one helps.
void logSocketError(platform::SocketError code, base::LogBase& log);

// A few words that hold on every system: "connection refused".
std::string socketErrorWords(platform::SocketError code);

}  // namespace kelvado
