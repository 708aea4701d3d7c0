// TLS for the scripted server: its side of the handshake, with certificates that are made when they
// are first asked for. Not for use by several threads at once.
#pragma once

#include <memory>
#include <string>

#include "tests/support/scripted_smtp_server.h"

namespace test_support {

// A Handshake. The certificates:
//   trusted      for 127.0.0.1; CN "server.test"
//   otherhost    as trusted, for another name
//   selfsigned   for 127.0.0.1; CN "selfsigned.test"
std::unique_ptr<ServerStream> tlsHandshake(platform::SocketHandle socket,
                                           const std::string& certificate);

// The first two, PEM: the clients of this process trust them when SSL_CERT_FILE names a file with
// this before the first connection.
std::string trustedPem();

// How often a client brought the session of an earlier connection to the trusted certificate.
long resumedSessions();

}  // namespace test_support
