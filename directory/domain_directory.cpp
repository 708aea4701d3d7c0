// Binding to the domain and the look-up of one user; see the header. The list of the domain's users
// is in domain_users_list.cpp.
#include "directory/domain_directory.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "base/text.h"
#include "platform/directory/ldap_filter.h"
#include "platform/text/code_page.h"

namespace directory {

using platform::DirectoryAccess;
using platform::DirectoryObject;
using platform::DirectorySearch;
using platform::DirectoryUser;
using platform::failed;
using platform::HResult;
using platform::kAdsSecureAuthentication;

namespace {

constexpr const char16_t* kPathAttribute = u"ADsPath";

// A search on the domain's default naming context.
struct Binding {
  std::unique_ptr<DirectorySearch> search;
  HResult status = platform::kOk;
  bool contextKnown = false;  // false: the domain itself did not answer
};

Binding bindDefaultContext(DirectoryAccess& access) {
  Binding binding;
  std::unique_ptr<DirectoryObject> rootDse;
  std::u16string context;
  binding.status = access.openObject(u"LDAP://rootDSE", kAdsSecureAuthentication, rootDse);
  if (failed(binding.status)) return binding;
  binding.status = rootDse->get(u"defaultNamingContext", context);
  if (failed(binding.status)) return binding;
  binding.contextKnown = true;
  rootDse.reset();
  binding.status =
      access.openSearch(u"LDAP://" + context, kAdsSecureAuthentication, binding.search);
  return binding;
}

// As the administrator's tools print it: the attribute's name and its value.
void printFound(std::FILE* out, const std::u16string& path) {
  if (out == nullptr) return;
  std::fputs("Found User.\n", out);
  std::fprintf(out, "%s: %s\r\n", platform::utf16ToAnsi(kPathAttribute).c_str(),
               platform::utf16ToAnsi(path).c_str());
}

// The ANSI text, up to a NUL, cut to what a field of UserDirectoryData holds.
std::string fieldText(const std::u16string& value) {
  const std::string text = platform::utf16ToAnsi(value.substr(0, value.find(u'\0')));
  return std::string(platform::ansiStart(text, kDirectoryTextCapacity - 1));
}

void setDefaults(UserDirectoryData& data) {
  data.email = kNoEmail;
  data.firstName.clear();
  data.lastName.clear();
}

// `traced`: with a debug line for each step.
HResult lookUp(DirectoryAccess& access, DirectorySearch* search, const std::u16string& logonName,
               config::DebugLog& log, bool traced, std::FILE* foundUsers, UserDirectoryData& data) {
  std::unique_ptr<DirectoryObject> object;
  if (traced) log.print("    find user by name\n");
  HResult status = FindUserByName(access, search, logonName, object, foundUsers);
  if (failed(status)) {
    log.print("    User %s not Found.\n", platform::utf16ToAnsi(logonName).c_str());
    log.print("    FindUserByName failed with the following HR: %x\n", status);
    return status;
  }
  std::unique_ptr<DirectoryUser> user;
  status = object->queryUser(user);
  if (failed(status)) return status;
  if (traced) log.print("    call GetUserEmail()\n");
  status = getUserEmail(*user, log, data);
  // The status is that of the last name, so a user without one counts as having no address:
  // intended.
  if (status != platform::kOk) data.email = kNoEmail;
  return status;
}

}  // namespace

int DomainDirectory::bindDomain() {
  access_.initialise();
  Binding binding = bindDefaultContext(access_);
  // Written whether or not debugging is on: nobody is mailed in a pass without the domain.
  if (!binding.contextKnown) log_.printAlways("Could not bind to the domain.\n");
  bindError_ = failed(binding.status) ? access_.errorText(binding.status) : "";
  domain_ = std::move(binding.search);
  return domain_ != nullptr ? 1 : 0;
}

void DomainDirectory::unbindDomain() {
  domain_.reset();
  access_.uninitialise();
}

HResult DomainDirectory::getEmailBound(const std::u16string& logonName, UserDirectoryData& data) {
  if (logonName.empty()) return platform::kOk;
  setDefaults(data);
  return lookUp(access_, domain_.get(), logonName, log_, false, foundUsers_, data);
}

HResult DomainDirectory::getEmail(const std::u16string& logonName, UserDirectoryData& data) {
  if (logonName.empty()) return platform::kOk;
  log_.print("  getEmail() begin**\n");
  log_.print("    wszUsername=%s\n", platform::utf16ToAnsi(logonName).c_str());
  setDefaults(data);
  log_.print("    initialize COM\n");
  access_.initialise();
  Binding binding = bindDefaultContext(access_);
  HResult status = binding.status;
  if (binding.contextKnown) {
    status = lookUp(access_, binding.search.get(), logonName, log_, true, foundUsers_, data);
  } else {
    log_.print("    Not Found. Could not bind to the domain.\n");
  }
  binding.search.reset();
  access_.uninitialise();
  log_.print("  getEmail() end**\n");
  return status;
}

HResult DomainDirectory::getEmail2(const std::u16string& logonName, UserDirectoryData& data) {
  if (logonName.empty()) return platform::kOk;
  setDefaults(data);
  access_.initialise();
  Binding binding = bindDefaultContext(access_);
  HResult status = binding.status;
  if (binding.contextKnown) {
    status = lookUp(access_, binding.search.get(), logonName, log_, false, foundUsers_, data);
  } else {
    log_.print("Not Found. Could not bind to the domain.\n");
  }
  binding.search.reset();
  access_.uninitialise();
  log_.print("  getEmail2() end**\n");
  return status;
}

HResult FindUserByName(DirectoryAccess& access, DirectorySearch* search,
                       const std::u16string& logonName, std::unique_ptr<DirectoryObject>& user,
                       std::FILE* foundUsers) {
  if (search == nullptr || logonName.empty()) return platform::kInvalidArgument;
  const std::u16string filter =
      u"(&(objectCategory=user)(samAccountName=" + platform::escapeFilterValue(logonName) + u"))";
  std::unique_ptr<platform::SearchRows> rows;
  HResult status = search->setScope(platform::SearchScope::Subtree);
  if (!failed(status)) status = search->execute(filter, {kPathAttribute}, rows);
  if (failed(status)) return platform::kFail;

  bool found = false;
  for (;;) {
    const HResult moved = rows->next();
    if (failed(moved)) status = moved;
    if (failed(moved) || moved == platform::kAdsNoMoreRows) break;
    platform::SearchColumn path;
    if (failed(rows->column(kPathAttribute, path))) {
      status = platform::kFail;
      continue;
    }
    std::unique_ptr<DirectoryObject> opened;
    status = access.openObject(path.firstValue, kAdsSecureAuthentication, opened);
    if (failed(status)) continue;
    user = std::move(opened);  // of several matches the last one
    found = true;
    printFound(foundUsers, path.firstValue);
  }
  return found ? status : platform::kFail;
}

HResult getUserEmail(DirectoryUser& user, config::DebugLog& log, UserDirectoryData& data) {
  struct Property {
    const char* step;
    const char* name;
    HResult (DirectoryUser::*read)(std::u16string&);
    std::string UserDirectoryData::*field;
    const char* fallback;
  };
  static constexpr Property kProperties[] = {
      {"    get email address\n", "EmailAddress", &DirectoryUser::emailAddress,
       &UserDirectoryData::email, kNoEmail},
      {"    get first name\n", "FirstName", &DirectoryUser::firstName,
       &UserDirectoryData::firstName, ""},
      {"    get last name\n", "LastName", &DirectoryUser::lastName, &UserDirectoryData::lastName,
       ""},
  };
  log.print("    getUserEmail() begin**\n");
  HResult status = platform::kOk;
  for (const Property& property : kProperties) {
    log.print("%s", property.step);
    std::u16string value;
    status = (user.*property.read)(value);
    data.*property.field = failed(status) ? property.fallback : fieldText(value);
    if (status == platform::kAdsPropertyNotFound) {
      log.print("    %s property not found.\n", property.name);
    } else if (failed(status)) {
      log.print("    %s failed with HR: %x\n", property.name, status);
    }
  }
  // No mail can go there, and a line break would split the lines of the logs.
  if (std::any_of(data.email.begin(), data.email.end(), base::isControl)) {
    log.print("    EmailAddress holds a control character, which no address does.\n");
    data.email = kNoEmail;
  }
  log.print("    getUserEmail() end**\n");
  return status;
}

}  // namespace directory
