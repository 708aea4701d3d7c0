// Reads and checks the settings of the directory; see the header.
#include "platform/posix/directory_settings.h"

#include <cstring>
#include <memory>
#include <string_view>

#include <ldap.h>

#include "platform/case_fold.h"
#include "platform/files.h"

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

struct UrlFree {
  void operator()(LDAPURLDesc* url) const { ldap_free_urldesc(url); }
};
using Url = std::unique_ptr<LDAPURLDesc, UrlFree>;

bool isLdapScheme(const char* scheme) {
  return std::strcmp(scheme, "ldap") == 0 || std::strcmp(scheme, "ldaps") == 0 ||
         std::strcmp(scheme, "ldapi") == 0;
}

// Splits "ldap://host:port/DN" into the server's URI and the base.
bool takeUri(const std::string& uri, LdapSettings& settings) {
  LDAPURLDesc* parsed = nullptr;
  if (ldap_url_parse(uri.c_str(), &parsed) != LDAP_URL_SUCCESS) return false;
  const Url url(parsed);
  const std::string scheme = std::string(url->lud_scheme) + "://";
  // The parser also takes "<...>" and "URL:..." around an address.
  const bool plain = equalAsciiNoCase(std::string_view(uri).substr(0, scheme.size()), scheme);
  const bool extra = url->lud_attrs != nullptr || url->lud_filter != nullptr ||
                     url->lud_exts != nullptr || url->lud_scope > LDAP_SCOPE_BASE;
  const bool hasHost = url->lud_host != nullptr && *url->lud_host != '\0';
  const bool isLocal = std::strcmp(url->lud_scheme, "ldapi") == 0;
  if (!plain || extra || !isLdapScheme(url->lud_scheme) || !(hasHost || isLocal)) return false;
  if (url->lud_dn != nullptr) settings.base = url->lud_dn;
  const std::string server = uri.substr(scheme.size());
  settings.uri = scheme + server.substr(0, server.find('/'));
  return true;
}

bool takeDirectory(const std::string& uri, DirectorySettings& settings) {
  if (uri.empty()) return true;
  if (equalAsciiNoCase(std::string_view(uri).substr(0, kLdifScheme.size()), kLdifScheme)) {
    const std::string file = uri.substr(kLdifScheme.size());
    if (!file.empty()) settings.ldifFile = absolutePath(file);
    return !file.empty();
  }
  return takeUri(uri, settings.ldap);
}

bool takeBind(const std::string& method, LdapSettings& settings) {
  if (method.empty() || equalAsciiNoCase(method, "gssapi")) return true;
  settings.bind = LdapSettings::Bind::Simple;
  return equalAsciiNoCase(method, "simple");
}

// Names of files, made absolute before the program changes its folder.
std::string fileSetting(const std::string& name) {
  return name.empty() ? name : absolutePath(name);
}

}  // namespace

bool readDirectorySettings(Registry& registry, const std::string& uri, DirectorySettings& settings,
                           std::string& error) {
  const auto refuse = [&error](const std::string& what) {
    error = what;
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

  if (!takeDirectory(where, settings)) {
    return refuse((uri.empty() ? settingName("uri") : "directory URI") + ": \"" + where +
                  "\" is not ldap://HOST[:PORT][/DN], ldaps://..., ldapi://... or ldif:FILE");
  }
  if (!settings.ldifFile.empty()) return true;
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
