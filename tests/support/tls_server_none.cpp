// In place of tls_server.cpp where the tests have no TLS server; conversations that need one are
// left out of the build there.
#include <cstdlib>

#include "tests/support/tls_server.h"

namespace test_support {

struct TlsServerStream::Impl {};

TlsServerStream::TlsServerStream(TestCertificate) {
  std::abort();
}
TlsServerStream::~TlsServerStream() = default;
bool TlsServerStream::feed(std::string_view, std::string&, std::string&) {
  return false;
}
void TlsServerStream::write(std::string_view, std::string&) {}
bool TlsServerStream::established() const {
  return false;
}
bool TlsServerStream::resumed() const {
  return false;
}

}  // namespace test_support
