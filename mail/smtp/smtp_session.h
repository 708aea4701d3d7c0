// What came of a connection to a mail server, for people who want to see it.
#pragma once

#include <string>

namespace kelvado {

// As far as it went. Texts are UTF-8, each on one line but for the certificate.
struct SmtpSession {
  std::string greeting;            // the server's first reply, on one line
  std::string helloName;           // of this machine, as EHLO or HELO gave it
  bool extended = false;           // the server took EHLO
  bool loggedIn = false;           // rather than going on without
  std::string certificate;         // of the server, PEM; empty without TLS
  std::string certificateProblem;  // why it does not verify; empty when it does
};

}  // namespace kelvado
