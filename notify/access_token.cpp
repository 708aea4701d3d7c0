#include "notify/access_token.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string_view>
#include <system_error>
#include <utility>

#include "base/ascii.h"
#include "base/hex_digit.h"
#include "base/text.h"
#include "mail/mime/base64.h"
#include "mail/smtp/token_login.h"
#include "platform/system/files.h"
#include "platform/system/stored_secret.h"
#include "platform/text/code_page.h"

namespace notify {
namespace {

using nlohmann::json;

constexpr const char* kTokenMethods[] = {"XOAUTH2", "OAUTHBEARER"};
// A token is replaced so long before it ends, so that none ends on its way.
constexpr std::uint32_t kMarginMs = 60'000;
constexpr std::uint64_t kMaxLifetimeSeconds = std::uint64_t{24} * 60 * 60;
constexpr std::uint32_t kPauseMs = 60'000;  // after a failure
constexpr std::size_t kMaxQuoteBytes = 300;

bool isTokenMethod(const std::string& method) {
  return std::any_of(std::begin(kTokenMethods), std::end(kTokenMethods),
                     [&](const char* name) { return base::equalsNoCase(method, name); });
}

// As application/x-www-form-urlencoded (RFC 6749 appendix B).
std::string formEncoded(std::string_view text) {
  constexpr std::string_view kPlain =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (kPlain.find(c) != std::string_view::npos) {
      out += c;
    } else {
      out += {'%', base::kHexDigits[byte >> 4], base::kHexDigits[byte & 15]};
    }
  }
  return out;
}

// RFC 6749 section 2.3.1: every token server takes the client's credentials this way.
std::string basicAuthorization(const std::string& id, const std::string& secret) {
  return "Basic " + kelvado::base64Encode(formEncoded(id) + ":" + formEncoded(secret));
}

std::string formOf(const config::ExpirationSettings& settings) {
  std::string form = "grant_type=client_credentials";
  if (!settings.oauthScope.empty()) form += "&scope=" + formEncoded(settings.oauthScope);
  return form;
}

std::string member(const json& object, const char* name) {
  const auto found = object.find(name);
  return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

// What a server says, for a line of text; the secret, should it repeat that, is taken out.
std::string quoted(std::string text, const std::string& secret) {
  base::replaceAll(text, secret, "***");
  return base::loggableLine(platform::ansiStart(text, kMaxQuoteBytes));
}

// For how long a token is used, in ms. Some servers write the number as a text.
std::optional<std::uint32_t> usefulLifetime(const json& answer) {
  const auto lifetime = answer.find("expires_in");
  if (lifetime == answer.end()) return std::nullopt;
  const std::string text = lifetime->is_string() ? lifetime->get<std::string>() : lifetime->dump();
  std::uint64_t seconds = 0;
  if (std::from_chars(text.data(), text.data() + text.size(), seconds).ec != std::errc()) {
    return std::nullopt;
  }
  const auto ms = static_cast<std::uint32_t>(std::min(seconds, kMaxLifetimeSeconds) * 1000);
  return ms > 2 * kMarginMs ? ms - kMarginMs : ms / 2;
}

struct ErrorCure {
  const char* error;  // of RFC 6749 section 5.2
  const char* cure;
};
constexpr ErrorCure kCures[] = {
    {"invalid_client",
     "oauthClientId or the secret in oauthClientSecretFile is wrong or has ended"},
    {"unauthorized_client", "the application may not ask for tokens of its own there"},
    {"invalid_scope", "oauthScope is not one that the application has"},
    {"unsupported_grant_type", "that server gives no tokens for client credentials"},
};

// The answer to a request that was refused.
std::string refusalOf(const platform::HttpsAnswer& answer, const std::string& secret) {
  const std::string status = std::to_string(answer.status);
  if (answer.status >= 300 && answer.status < 400) {
    return "redirects elsewhere (" + status +
           "), which is not followed: set oauthTokenUrl to the "
           "address of the token server itself";
  }
  if (answer.status == 429) return "refuses because it was asked too often (429); try later";
  if (answer.status >= 500) return "has a fault of its own (" + status + "); try later";
  const json error = json::parse(answer.body, nullptr, false);
  const std::string code = error.is_object() ? member(error, "error") : "";
  if (code.empty()) return "answers " + status + ": look whether oauthTokenUrl is right";
  std::string text = "refuses with \"" + quoted(code, secret) + "\"";
  const std::string description = member(error, "error_description");
  if (!description.empty()) text += " (" + quoted(description, secret) + ")";
  for (const ErrorCure& row : kCures) {
    if (code == row.error) text += std::string(": ") + row.cure;
  }
  return text;
}

}  // namespace

bool hasPassword(const config::ExpirationSettings& settings) {
  return !settings.smtpPassword.empty() || !settings.smtpPasswordFile.empty();
}

std::string readSecret(const char* setting, const std::string& file, std::string& problem) {
  std::string secret;
  std::string error;
  if (!platform::readStoredSecret(file, secret, error)) {
    problem = std::string(setting) + " " + file + ": " + error;
  }
  return secret;
}

bool wantsAccessToken(const config::ExpirationSettings& settings) {
  const bool hasSource = !settings.smtpTokenFile.empty() || !settings.oauthTokenUrl.empty();
  return hasSource && (settings.smtpAuthMethod.empty() || isTokenMethod(settings.smtpAuthMethod));
}

namespace {

void noteShared(const char* setting, const std::string& file, std::vector<std::string>& problems) {
  if (file.empty() || !platform::fileIsShared(file)) return;
  problems.push_back(std::string(setting) + " " + file +
                     ": other users can read it; take their rights away");
}

std::vector<std::string> tokenProblems(const config::ExpirationSettings& settings) {
  std::vector<std::string> problems;
  if (!wantsAccessToken(settings)) {
    if (isTokenMethod(settings.smtpAuthMethod)) {
      problems.push_back("smtpAuthMethod is " + settings.smtpAuthMethod +
                         ": set smtpTokenFile or oauthTokenUrl, where the access token comes from");
    }
    return problems;
  }
  if (settings.smtpUsername.empty()) {
    problems.emplace_back("an access token needs smtpUsername, the mailbox that it is for");
  }
  if (!settings.smtpStartTls && !settings.smtpSsl) {
    problems.emplace_back("an access token is sent under TLS only: set smtpStartTls or smtpSsl");
  }
  if (settings.smtpTokenFile.empty()) {
    if (!base::beginsWithNoCase(settings.oauthTokenUrl, "https://")) {
      problems.emplace_back("oauthTokenUrl does not begin with https://");
    }
    if (settings.oauthClientId.empty() || settings.oauthClientSecretFile.empty()) {
      problems.emplace_back("oauthTokenUrl needs oauthClientId and oauthClientSecretFile");
    }
  }
  noteShared("smtpTokenFile", settings.smtpTokenFile, problems);
  noteShared("oauthClientSecretFile", settings.oauthClientSecretFile, problems);
  return problems;
}

}  // namespace

std::vector<std::string> findLoginProblems(const config::ExpirationSettings& settings) {
  std::vector<std::string> problems = tokenProblems(settings);
  if (!wantsAccessToken(settings)) {
    noteShared("smtpPasswordFile", settings.smtpPasswordFile, problems);
  }
  return problems;
}

const std::string& AccessToken::current(std::string& problem) {
  problem.clear();
  if (!settings_.smtpTokenFile.empty()) {
    readFile(problem);
    return token_;
  }
  const bool hasEnded = !token_.empty() && lifetimeMs_ && ageMs() >= *lifetimeMs_;
  if (hasEnded) {
    token_.clear();
    renewed_ = false;
  }
  if (token_.empty()) {
    if (failure_.empty() || ageMs() >= kPauseMs) fetch(failure_);
    problem = failure_;
  }
  return token_;
}

bool AccessToken::renew() {
  if (!settings_.smtpTokenFile.empty() || token_.empty() || renewed_) return false;
  token_.clear();
  renewed_ = true;
  return true;
}

void AccessToken::readFile(std::string& problem) {
  token_ = readSecret("smtpTokenFile", settings_.smtpTokenFile, problem);
  if (token_.empty() || kelvado::isAccessToken(token_)) return;
  problem = "smtpTokenFile " + settings_.smtpTokenFile + ": its first line is no access token";
  token_.clear();
}

void AccessToken::fetch(std::string& problem) {
  askedTicks_ = clock_.tickCount();
  problem.clear();
  const std::string secret =
      readSecret("oauthClientSecretFile", settings_.oauthClientSecretFile, problem);
  if (secret.empty()) return;
  const std::string server =
      "the token server " + base::loggableLine(settings_.oauthTokenUrl) + " ";
  const platform::HttpsAnswer answer =
      https_.post({settings_.oauthTokenUrl, basicAuthorization(settings_.oauthClientId, secret),
                   formOf(settings_)});
  if (answer.untrusted) {
    problem = server + "is not trusted (" + quoted(answer.error, secret) +
              "): this machine has to know the authority of its certificate";
  } else if (answer.status == 0) {
    problem = server + "gave no answer (" + quoted(answer.error, secret) +
              "): look at oauthTokenUrl and at the way to it (firewall, proxy)";
  } else if (answer.status != 200) {
    problem = server + refusalOf(answer, secret);
  } else {
    problem = take(answer, secret);
    if (!problem.empty()) problem = server + problem;
  }
}

std::string AccessToken::take(const platform::HttpsAnswer& answer, const std::string& secret) {
  const json object = json::parse(answer.body, nullptr, false);
  const std::string token = object.is_object() ? member(object, "access_token") : "";
  if (!kelvado::isAccessToken(token)) {
    return "gives something that holds no access token: look whether oauthTokenUrl is right";
  }
  const std::string type = member(object, "token_type");
  if (!base::equalsNoCase(type, "Bearer")) {
    return "gives a token of the type \"" + quoted(type, secret) +
           "\", which mail servers do not take";
  }
  lifetimeMs_ = usefulLifetime(object);
  token_ = token;
  return {};
}

}  // namespace notify
