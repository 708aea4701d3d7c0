// Reads and checks the settings of the directory; see the header.
#include "platform/directory/directory_settings.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <string_view>

#include "base/ascii.h"
#include "base/hex_digit.h"
#include "base/text.h"
#include "platform/system/files.h"

namespace platform {
namespace {

constexpr const char* kKey = "Software\\Kadro\\PwsentryPro\\Directory";
constexpr std::size_t kMaxValue = 4096;
constexpr std::string_view kLdifScheme = "ldif:";

std::string settingName(const char* name) {
  return std::string(kKey) + ", value \"" + name + "\"";
}

// The texts of the key; an absent value is empty.
class SettingsKey {
 public:
  SettingsKey(Registry& registry, std::string& error) : error_(error) {
    const WinError status = registry.openKey(kKey, RegistryAccess::Query, key_);
    if (status != kErrorSuccess && status != kErrorFileNotFound) fail(kKey, "cannot be read");
  }

  std::string text(const char* name) {
    RegistryValue value;
    if (!key_) return {};
    const WinError status = key_->queryValue(name, kMaxValue, value);
    if (status == kErrorFileNotFound) return {};
    const bool isText =
        value.type == RegistryType::String || value.type == RegistryType::ExpandString;
    if (status != kErrorSuccess || !isText) {
      fail(settingName(name), "is not a text of less than 4096 bytes");
      return {};
    }
    return value.bytes.substr(0, value.bytes.find('\0'));
  }

  bool failed() const { return failed_; }

 private:
  void fail(const std::string& what, const char* problem) {
    if (!failed_) error_ = what + ": " + problem;
    failed_ = true;
  }

  std::string& error_;
  std::unique_ptr<RegistryKey> key_;
  bool failed_ = false;
};

constexpr std::string_view kLdapSchemes[] = {"ldap://", "ldaps://", "ldapi://"};
constexpr std::string_view kLocalScheme = "ldapi://";

// RFC 3986 section 2.1. Nothing when a '%' is not followed by two digits, or stands for a NUL.
std::optional<std::string> percentDecoded(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    const int high = i + 2 < text.size() ? base::hexValue(text[i + 1]) : -1;
    const int low = high >= 0 ? base::hexValue(text[i + 2]) : -1;
    if (low < 0 || (high == 0 && low == 0)) return std::nullopt;
    decoded += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return decoded;
}

// Empty, or ":" and a port.
bool isPort(std::string_view text) {
  if (text.empty()) return true;
  text.remove_prefix(1);
  const bool digits = !text.empty() && text.size() <= 5 &&
                      text.find_first_not_of("0123456789") == std::string_view::npos;
  const int port = digits ? std::stoi(std::string(text)) : 0;
  return port > 0 && port <= 65535;
}

// HOST[:PORT], where an IPv6 address stands in brackets.
bool isServer(std::string_view text) {
  const auto isForeign = [](char c) {
    return static_cast<unsigned char>(c) <= ' ' ||
           std::string_view("<>\"?#@,%\x7F").find(c) != std::string_view::npos;
  };
  if (std::any_of(text.begin(), text.end(), isForeign)) return false;
  if (text.starts_with("[]")) return false;
  const std::size_t end =
      text.starts_with('[') ? text.find(']') + 1 : std::min(text.find(':'), text.size());
  return end > 0 && end <= text.size() && (end == text.size() || text[end] == ':') &&
         isPort(text.substr(end));
}

// Splits "ldap://HOST[:PORT][/DN]" (RFC 4516, without the parts behind the name) into the server's
// URI and the base.
bool takeUri(std::string_view uri, LdapSettings& settings) {
  for (const std::string_view scheme : kLdapSchemes) {
    if (!base::beginsWithNoCase(uri, scheme)) continue;
    const std::string_view rest = uri.substr(scheme.size());
    const std::string_view server = rest.substr(0, rest.find('/'));
    const std::string_view name = rest.substr(std::min(server.size() + 1, rest.size()));
    const bool isLocal = scheme == kLocalScheme;  // its "host" is the path of a socket
    const std::optional<std::string> base = percentDecoded(name);
    if (!(isLocal || isServer(server)) || name.find('?') != std::string_view::npos || !base) {
      return false;
    }
    settings.base = *base;
    settings.uri = std::string(scheme).append(server);
    return true;
  }
  return false;
}

bool takeDirectory(const std::string& uri, ServedDirectories served, DirectorySettings& settings) {
  if (uri.empty()) return true;
  if (base::beginsWithNoCase(uri, kLdifScheme)) {
    const std::string file = uri.substr(kLdifScheme.size());
    if (!file.empty()) settings.ldifFile = absolutePath(file);
    return !file.empty();
  }
  return served == ServedDirectories::LdapAndLdif && takeUri(uri, settings.ldap);
}

// What `uri` may be.
const char* addressesOf(ServedDirectories served) {
  return served == ServedDirectories::LdapAndLdif
             ? "ldap://HOST[:PORT][/DN], ldaps://..., ldapi://... or ldif:FILE"
             : "ldif:FILE; without it this system reads the machine's own domain";
}

bool takeBind(const std::string& method, LdapSettings& settings) {
  if (method.empty() || base::equalsNoCase(method, "gssapi")) return true;
  settings.bind = LdapSettings::Bind::Simple;
  return base::equalsNoCase(method, "simple");
}

// Names of files, made absolute before the program changes its folder.
std::string fileSetting(const std::string& name) {
  return name.empty() ? name : absolutePath(name);
}

}  // namespace

bool readDirectorySettings(Registry& registry, const std::string& uri, ServedDirectories served,
                           DirectorySettings& settings, std::string& error) {
  const auto refuse = [&error](const std::string& what) {
    error = base::loggableLine(what);
    return false;
  };
  SettingsKey key(registry, error);
  const std::string where = uri.empty() ? key.text("uri") : uri;
  const std::string method = key.text("bindMethod");
  LdapSettings& ldap = settings.ldap;
  ldap.bindUser = key.text("bindUser");
  ldap.bindPasswordFile = fileSetting(key.text("bindPasswordFile"));
  ldap.caFile = fileSetting(key.text("caFile"));
  if (key.failed()) return false;

  if (!takeDirectory(where, served, settings)) {
    return refuse((uri.empty() ? settingName("uri") : "directory URI") + ": \"" + where +
                  "\" is not " + addressesOf(served));
  }
  if (!settings.ldifFile.empty() || served == ServedDirectories::OnlyLdif) return true;
  if (!takeBind(method, ldap)) {
    return refuse(settingName("bindMethod") + ": \"" + method +
                  "\" is neither \"gssapi\" nor \"simple\"");
  }
  if (ldap.bind == LdapSettings::Bind::Simple) {
    if (ldap.bindUser.empty()) return refuse(settingName("bindUser") + ": missing");
    if (ldap.bindPasswordFile.empty()) return refuse(settingName("bindPasswordFile") + ": missing");
  }
  return true;
}

}  // namespace platform
