// One POST of a form over HTTPS (RFC 9110), for programs that have to ask a web service for a
// secret: with libcurl or WinHTTP. The server's certificate is always verified against the
// authorities that the system trusts; the system's proxy settings hold (elsewhere than on Windows:
// https_proxy and no_proxy in the environment); redirects are not followed, so that a secret
// reaches no other server. A target of its own (platform_https): the mail library does without.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace platform {

struct HttpsPost {
  std::string url;                   // "https://..." only
  std::string authorization;         // value of the field of that name; a secret
  std::string form;                  // as application/x-www-form-urlencoded
  std::uint32_t timeoutMs = 20'000;  // for all of it; half as long for the connection
};

struct HttpsAnswer {
  int status = 0;          // of HTTP; 0: there was no whole answer
  std::string body;        // at most kMaxHttpsBody bytes
  std::string error;       // why status is 0, in one line, which holds no secret
  bool untrusted = false;  // status is 0 because the certificate was not accepted
};

// A longer answer is an error.
inline constexpr std::size_t kMaxHttpsBody = std::size_t{64} * 1024;

class HttpsClient {
 public:
  virtual ~HttpsClient() = default;
  // Blocks up to the time-out.
  virtual HttpsAnswer post(const HttpsPost& request) = 0;
};

// Never destroyed; may be used by several threads.
HttpsClient& systemHttps();

}  // namespace platform
