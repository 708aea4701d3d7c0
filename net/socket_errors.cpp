#include "net/socket_errors.h"

#include <cstdio>

namespace kelvado {
namespace {

struct ErrorText {
  platform::SocketError code;
  const char* text;
};

constexpr ErrorText kErrorTexts[] = {
    {10093, "WSANOTINITIALISED A successful WSAStartup must occur before using this function."},
    {10035, "WSAEWOULDBLOCK The socket would block."},
    {10053,
     "WSAECONNABORTED An established connection was aborted by the software in your host machine."},
    {10050, "WSAENETDOWN The network subsystem or the associated service provider has failed."},
    {10047, "WSAEAFNOSUPPORT The specified address family is not supported."},
    {10036,
     "WSAEINPROGRESS A blocking Windows Sockets 1.1 call is in progress, or the service provider "
     "is still processing a callback function."},
    {10024, "WSAEMFILE No more socket descriptors are available."},
    {10055, "WSAENOBUFS No buffer space is available. The socket cannot be created."},
    {10043, "WSAEPROTONOSUPPORT The specified protocol is not supported."},
    {10041, "WSAEPROTOTYPE The specified protocol is the wrong type for this socket."},
    {10044,
     "WSAESOCKTNOSUPPORT The specified socket type is not supported in this address family."},
    {10051, "WSAENETUNREACH A socket operation was attempted to an unreachable network."},
    {10060,
     "WSAETIMEDOUT A connection attempt failed because the connected party did not properly "
     "respond after a period of time, or established connection failed because connected host has "
     "failed to respond."},
    {10061,
     "WSAECONNREFUSED No connection could be made because the target machine actively refused it."},
    {10054, "WSAECONNRESET An existing connection was forcibly closed by the remote host."},
    {10048,
     "WSAEADDRINUSE Only one usage of each socket address (protocol/network address/port) is "
     "normally permitted."},
    {10013,
     "WSAEACCES An attempt was made to access a socket in a way forbidden by its access "
     "permissions."},
    {10022, "WSAEINVAL An invalid argument was supplied."},
    {10106,
     "WSAEPROVIDERFAILEDINIT The requested service provider could not be loaded or initialized."},
};

// The errors that a client sees in practice.
constexpr ErrorText kWords[] = {
    {platform::kSocketOk, "connection lost"},
    {10013, "not permitted on this machine"},
    {10024, "no more sockets on this machine"},
    {10049, "no such address"},
    {10050, "the network is down"},
    {10051, "network unreachable"},
    {10053, "connection aborted"},
    {platform::kWsaConnectionReset, "connection reset by the server"},
    {platform::kWsaTimedOut, "timed out"},
    {platform::kWsaConnectionRefused, "connection refused"},
    {10065, "host unreachable"},
    {platform::kWsaHostNotFound, "host name not found"},
};

}  // namespace

std::string socketErrorWords(platform::SocketError code) {
  for (const ErrorText& row : kWords) {
    if (row.code == code) return row.text;
  }
  return "network error " + std::to_string(code);
}

void logSocketError(platform::SocketError code, base::LogBase& log) {
  for (const ErrorText& row : kErrorTexts) {
    if (row.code != code) continue;
    log.LogData("SocketError", row.text);
    if (code == platform::kWsaWouldBlock) {
      log.LogData("SocketError", "Check to make sure the port is not blocked by a firewall.");
    }
    return;
  }
  char text[32];
  std::snprintf(text, sizeof text, "Error %x", static_cast<unsigned>(code));
  log.LogData("SocketError", text);
  log.LogData("SocketError",
              "Check to make sure the connection is not blocked by a firewall or anti-virus port "
              "filtering.");
}

}  // namespace kelvado
