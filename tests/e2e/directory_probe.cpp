// Prints what a directory gives, for the tests that drive real and broken servers: it goes the way
// of a pass, through the settings and SnapshotDirectory.
//
//   directory_probe REGISTRY-FILE [--uri URI] [--seconds N] [--find NAME]... [--expire NAME]...
//
// A line a fact, tab-separated: "domain DN SECONDS", "user NAME FLAGS AGE MUST-CHANGE", "mail NAME
// MAIL GIVEN-NAME SURNAME" for each --find, "expired NAME STATUS", "warning TEXT". On failure
// "error HRESULT TEXT" and exit status 1. With --wait it reads a line of input before each
// --expire.
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/code_page.h"
#include "platform/file/ldif_source.h"
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

struct Arguments {
  std::string registry, uri;
  int seconds = 0;  // 0: as usual
  bool wait = false;
  std::vector<std::string> find, expire;
};

Arguments parse(int count, char** texts) {
  Arguments arguments;
  arguments.registry = count > 1 ? texts[1] : "";
  for (int i = 2; i < count; ++i) {
    const std::string option = texts[i];
    if (option == "--wait") arguments.wait = true;
    if (option == "--wait" || i + 1 >= count) continue;
    const std::string value = texts[++i];
    if (option == "--uri") arguments.uri = value;
    if (option == "--seconds") arguments.seconds = std::atoi(value.c_str());
    if (option == "--find") arguments.find.push_back(value);
    if (option == "--expire") arguments.expire.push_back(value);
  }
  return arguments;
}

void printUsers(platform::SnapshotDirectory& directory, const std::string& domain) {
  std::unique_ptr<platform::DirectorySearch> search;
  std::unique_ptr<platform::SearchRows> rows;
  directory.openSearch(platform::utf8ToUtf16("LDAP://" + domain), 0, search);
  if (search == nullptr || search->execute(u"(objectCategory=*)", u"samAccountName", rows) != 0) {
    return;
  }
  while (rows->next() == platform::kOk) {
    platform::SearchColumn name;
    platform::UserInfo info;
    if (rows->column(u"samAccountName", name) != platform::kOk) continue;
    directory.userInfo(name.firstValue, info);
    std::printf("user\t%s\t%x\t%u\t%u\n", platform::utf16ToUtf8(name.firstValue).c_str(),
                info.flags, info.passwordAge, info.passwordExpired);
  }
}

void printMail(platform::SnapshotDirectory& directory, const std::string& domain,
               const std::string& name) {
  std::unique_ptr<platform::DirectorySearch> search;
  std::unique_ptr<platform::SearchRows> rows;
  std::unique_ptr<platform::DirectoryObject> object;
  std::unique_ptr<platform::DirectoryUser> user;
  platform::SearchColumn path;
  directory.openSearch(platform::utf8ToUtf16("LDAP://" + domain), 0, search);
  search->execute(platform::utf8ToUtf16("(&(objectCategory=user)(samAccountName=" + name + "))"),
                  u"ADsPath", rows);
  if (rows == nullptr || rows->next() != platform::kOk) return;
  rows->column(u"ADsPath", path);
  if (directory.openObject(path.firstValue, 0, object) != platform::kOk) return;
  object->queryUser(user);
  std::u16string mail, first, last;
  user->emailAddress(mail);
  user->firstName(first);
  user->lastName(last);
  std::printf("mail\t%s\t%s\t%s\t%s\n", name.c_str(), platform::utf16ToUtf8(mail).c_str(),
              platform::utf16ToUtf8(first).c_str(), platform::utf16ToUtf8(last).c_str());
}

void expire(platform::SnapshotDirectory& directory, const std::string& name) {
  platform::UserInfo info;
  info.passwordExpired = 5;
  const platform::NetStatus status = directory.setUserInfo(platform::utf8ToUtf16(name), info);
  std::printf("expired\t%s\t%u\t%s\n", name.c_str(), status,
              status == platform::kNetSuccess ? "" : directory.lastError().text.c_str());
}

int refuse(unsigned status, const std::string& text) {
  std::printf("error\t%08X\t%s\n", status, text.c_str());
  return 1;
}

}  // namespace

int main(int count, char** texts) {
  const Arguments arguments = parse(count, texts);
  std::string error;
  auto registry = platform::RegRegistry::load(arguments.registry, error);
  if (registry == nullptr) return refuse(0, error);
  platform::DirectorySettings settings;
  if (!readDirectorySettings(*registry, arguments.uri, settings, error)) return refuse(0, error);
  if (arguments.seconds > 0) {
    settings.ldap.connectSeconds = settings.ldap.answerSeconds = arguments.seconds;
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
  std::printf("domain\t%s\t%u\n", domain.c_str(), modals.maxPasswordAge);
  printUsers(directory, domain);
  for (const std::string& name : arguments.find) printMail(directory, domain, name);
  for (const std::string& warning : directory.warnings()) {
    std::printf("warning\t%s\n", warning.c_str());
  }
  std::fflush(stdout);
  for (const std::string& name : arguments.expire) {
    std::string line;
    if (arguments.wait) std::getline(std::cin, line);
    expire(directory, name);
    std::fflush(stdout);
  }
  return 0;
}
