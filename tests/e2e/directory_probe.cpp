// Prints what a directory gives, for the tests that drive real and broken servers: it goes the way
// of a pass, through the settings and SnapshotDirectory.
//
//   directory_probe REGISTRY-FILE SECONDS [NAME]...
//
// SECONDS is how long it waits for the server, 0: as usual. A line a fact, tab-separated:
// "domain DN SECONDS", "user NAME FLAGS AGE MAIL GIVEN-NAME SURNAME", "warning TEXT". Then, for
// each NAME, it reads a line of input, expires the user's password and prints "expired NAME STATUS
// TEXT". On failure "error HRESULT TEXT" and exit status 1.
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

#include "platform/clock.h"
#include "platform/code_page.h"
#include "platform/file/reg_registry.h"
#include "platform/file/snapshot_directory.h"
#include "platform/posix/directory_settings.h"
#include "platform/posix/ldap_source.h"

// Cyrus SASL keeps the credentials of a Kerberos bind that agrees on no security layer (within
// TLS).
extern "C" const char* __lsan_default_suppressions() {
  return "leak:gss_acquire_cred_from";
}

namespace {

void printUser(platform::SnapshotDirectory& directory, const std::u16string& path) {
  std::unique_ptr<platform::DirectoryObject> object;
  std::unique_ptr<platform::DirectoryUser> user;
  if (directory.openObject(path, 0, object) != platform::kOk) return;
  std::u16string name, mail, first, last;
  platform::UserInfo info;
  object->get(u"sAMAccountName", name);
  object->queryUser(user);
  user->emailAddress(mail);
  user->firstName(first);
  user->lastName(last);
  directory.userInfo(name, info);
  std::cout << "user\t" << platform::utf16ToUtf8(name) << '\t' << info.flags << '\t'
            << info.passwordAge;
  for (const std::u16string& text : {mail, first, last}) {
    std::cout << '\t' << platform::utf16ToUtf8(text);
  }
  std::cout << '\n';
}

void printUsers(platform::SnapshotDirectory& directory, const std::string& domain) {
  std::unique_ptr<platform::DirectorySearch> search;
  std::unique_ptr<platform::SearchRows> rows;
  platform::SearchColumn path;
  directory.openSearch(platform::utf8ToUtf16("LDAP://" + domain), 0, search);
  search->execute(u"(sAMAccountName=*)", u"ADsPath", rows);
  while (rows->next() == platform::kOk && rows->column(u"ADsPath", path) == platform::kOk) {
    printUser(directory, path.firstValue);
  }
}

void expire(platform::SnapshotDirectory& directory, const std::string& name) {
  platform::UserInfo info;
  info.passwordExpired = 5;
  const platform::NetStatus status = directory.setUserInfo(platform::utf8ToUtf16(name), info);
  const bool done = status == platform::kNetSuccess;
  std::cout << "expired\t" << name << '\t' << status << '\t'
            << (done ? "" : directory.lastError().text) << std::endl;
}

int refuse(platform::HResult status, const std::string& text) {
  std::cout << "error\t" << std::hex << status << '\t' << text << '\n';
  return 1;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 3) return 2;
  std::string error;
  auto registry = platform::RegRegistry::load(arguments[1], error);
  platform::DirectorySettings settings;
  if (registry == nullptr || !readDirectorySettings(*registry, "", settings, error)) {
    return refuse(0, error);
  }
  if (const int seconds = std::atoi(arguments[2]); seconds > 0) {
    settings.ldap.connectSeconds = settings.ldap.answerSeconds = seconds;
  }
  platform::SnapshotDirectory directory(std::make_unique<platform::LdapSource>(settings.ldap),
                                        platform::systemClock());
  directory.beginPass();
  std::unique_ptr<platform::DirectoryObject> root;
  const platform::HResult status = directory.openObject(u"LDAP://rootDSE", 0, root);
  if (platform::failed(status)) return refuse(status, directory.lastError().text);
  std::u16string context;
  root->get(u"defaultNamingContext", context);
  const std::string domain = platform::utf16ToUtf8(context);
  platform::DomainModals modals;
  directory.domainModals(modals);
  std::cout << "domain\t" << domain << '\t' << modals.maxPasswordAge << '\n';
  printUsers(directory, domain);
  for (const std::string& warning : directory.warnings())
    std::cout << "warning\t" << warning << '\n';
  std::cout.flush();
  std::string line;
  for (int i = 3; i < count && std::getline(std::cin, line); ++i) expire(directory, arguments[i]);
  return 0;
}
