// The server's side of TLS for the scripted server: certificates made when the process starts, and
// a stream that turns bytes of the wire into plain ones and back. Not for use by several threads at
// once.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace test_support {

enum class TestCertificate {
  Trusted,     // for 127.0.0.1, signed by the test's own authority; CN "server.test"
  SelfSigned,  // for 127.0.0.1
  OtherHost,   // signed by the authority, for another name
};

// The authority's certificate, PEM: the clients of this process trust it when SSL_CERT_FILE names a
// file with it before the first connection.
std::string authorityPem();

class TlsServerStream {
 public:
  explicit TlsServerStream(TestCertificate certificate);
  ~TlsServerStream();

  // Takes bytes of the wire; appends what they mean to `plain` and the answer to `wire`.
  bool feed(std::string_view bytes, std::string& plain, std::string& wire);
  void write(std::string_view plain, std::string& wire);
  bool established() const;
  bool resumed() const;  // the client brought a session of an earlier connection

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace test_support
