// The OAuth 2.0 access token that the mail server takes in the place of a password: from a file
// that another program keeps fresh, or fetched over HTTPS with the client's own credentials (RFC
// 6749 section 4.4) and kept until shortly before it ends. Used by the mailer, by one thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "config/expiration_settings.h"
#include "platform/network/https_client.h"
#include "platform/system/clock.h"

namespace notify {

// Whether the settings ask for a token: there is a source for one, and smtpAuthMethod is empty or a
// method that takes one.
bool wantsAccessToken(const config::ExpirationSettings& settings);

// Whether there is a password to log in with, in the settings or in a file.
bool hasPassword(const config::ExpirationSettings& settings);

// The secret in the file that a setting names. `problem` when there is none, one line without it.
std::string readSecret(const char* setting, const std::string& file, std::string& problem);

// What in the settings stands in the way of logging in with a token, or of keeping token or
// password secret: one line each, with the cure. Looks at the rights of the files, and asks nobody.
std::vector<std::string> findLoginProblems(const config::ExpirationSettings& settings);

class AccessToken {
 public:
  // All are borrowed.
  AccessToken(const config::ExpirationSettings& settings, platform::Clock& clock,
              platform::HttpsClient& https = platform::systemHttps())
      : settings_(settings), clock_(clock), https_(https) {}

  // The token to log in with, for the next connection. Empty when there is none: `problem` is then
  // one line with cause and cure, without any secret. Reads the file each time; asks the token
  // server, which may block up to its time-out, only when there is no token that lasts, and after a
  // failure not again for a minute.
  const std::string& current(std::string& problem);

  // The mail server refused the token (535). True when another one may do: the fetched one is
  // forgotten then, and current() fetches again. Once for each token that lasts as long as it
  // should.
  bool renew();

 private:
  void readFile(std::string& problem);
  void fetch(std::string& problem);
  // Keeps the token of an answer; the problem when it holds none.
  std::string take(const platform::HttpsAnswer& answer, const std::string& secret);
  std::uint32_t ageMs() const { return clock_.tickCount() - askedTicks_; }

  const config::ExpirationSettings& settings_;
  platform::Clock& clock_;
  platform::HttpsClient& https_;
  std::string token_;     // empty: none
  std::string failure_;   // of the last attempt to fetch; empty: it succeeded, or there was none
  bool renewed_ = false;  // since the last one that ended by itself
  std::uint32_t askedTicks_ = 0;
  std::optional<std::uint32_t> lifetimeMs_;  // nothing: not known, until it is refused
};

}  // namespace notify
