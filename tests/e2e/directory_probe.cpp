// Prints what a directory server gives, for the tests that drive real and broken ones.
//
//   directory_probe REGISTRY-FILE SECONDS [NAME]...
//
// SECONDS is how long it waits for the server, 0: as usual. A line a fact, tab-separated:
// "domain DN MAXIMUM-AGE", "user NAME CONTROL CANNOT-CHANGE LAST-SET MAIL GIVEN-NAME SURNAME",
// "warning TEXT". Then, for each NAME, it reads a line of input, expires the user's password and
// prints "expired NAME STATUS TEXT". On failure "error HRESULT TEXT" and exit status 1.
#include <cstdlib>
#include <iostream>
#include <string>

#include "platform/directory/directory_settings.h"
#include "platform/directory/ldap/ldap_source.h"
#include "platform/registry/file/reg_registry.h"

// Cyrus SASL keeps the credentials of a Kerberos bind that agrees on no security layer (within
// TLS).
extern "C" const char* __lsan_default_suppressions() {
  return "leak:gss_acquire_cred_from";
}

namespace {

int refuse(platform::HResult status, const std::string& text) {
  std::cout << "error\t" << std::hex << status << '\t' << text << '\n';
  return 1;
}

void print(const platform::DirectorySnapshot& domain) {
  std::cout << "domain\t" << domain.namingContext << '\t' << domain.maxPwdAge << '\n';
  for (const platform::DirectoryEntry& user : domain.entries) {
    std::cout << "user\t" << user.logonName << '\t' << user.accountControl << '\t'
              << user.cantChangePassword << '\t' << user.pwdLastSet << '\t' << user.mail << '\t'
              << user.givenName << '\t' << user.surname << '\n';
  }
  for (const std::string& warning : domain.warnings) std::cout << "warning\t" << warning << '\n';
  std::cout.flush();
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 3) return 2;
  std::string text;
  const auto registry = platform::RegRegistry::load(arguments[1], text);
  platform::DirectorySettings settings;
  if (registry == nullptr ||
      !readDirectorySettings(*registry, "", platform::ServedDirectories::LdapAndLdif, settings,
                             text)) {
    return refuse(0, text);
  }
  if (const int seconds = std::atoi(arguments[2]); seconds > 0) {
    settings.ldap.connectSeconds = settings.ldap.answerSeconds = seconds;
  }
  platform::LdapSource source(settings.ldap, platform::systemClock());
  platform::DirectorySnapshot domain;
  platform::DirectoryError error;
  const platform::HResult status = source.load(domain, error);
  if (platform::failed(status)) return refuse(status, error.text);
  print(domain);
  for (int i = 3; i < count && std::getline(std::cin, text); ++i) {
    for (const platform::DirectoryEntry& user : domain.entries) {
      if (user.logonName != arguments[i]) continue;
      const platform::AccountResult result = source.expirePassword(user);
      std::cout << "expired\t" << user.logonName << '\t' << result.status << '\t' << result.text;
      std::cout << std::endl;
    }
  }
  return 0;
}
