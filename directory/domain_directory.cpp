// Binding to the domain and the look-up of one user; see the header. The list of the domain's users
// is in domain_users_list.cpp.
#include "directory/domain_directory.h"

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <utility>

#include "base/ascii.h"
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
  std::u16string context;
  std::unique_ptr<DirectorySearch> search;
  HResult status = platform::kOk;
  bool contextKnown = false;  // false: the domain itself did not answer
};

Binding bindDefaultContext(DirectoryAccess& access) {
  Binding binding;
  std::unique_ptr<DirectoryObject> rootDse;
  binding.status = access.openObject(u"LDAP://rootDSE", kAdsSecureAuthentication, rootDse);
  if (failed(binding.status)) return binding;
  binding.status = rootDse->get(u"defaultNamingContext", binding.context);
  if (failed(binding.status)) return binding;
  binding.contextKnown = true;
  rootDse.reset();
  binding.status =
      access.openSearch(u"LDAP://" + binding.context, kAdsSecureAuthentication, binding.search);
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
  std::string text = platform::utf16ToAnsi(value);
  text.resize(std::min(text.find('\0'), text.size()));
  if (text.size() >= kDirectoryTextCapacity) {
    text.resize(platform::ansiStart(text, kDirectoryTextCapacity - 1).size());
  }
  return text;
}

// "DC=corp,DC=example" as "corp.example".
std::string dnsName(const std::u16string& context) {
  std::string name;
  const std::string text = platform::utf16ToAnsi(context);
  for (std::size_t from = 0; from < text.size();) {
    const std::size_t end = std::min(text.find(',', from), text.size());
    const std::string_view part = std::string_view(text).substr(from, end - from);
    if (base::equalsNoCase(part.substr(0, 3), "DC=")) {
      name.append(name.empty() ? "" : ".").append(part.substr(3));
    }
    from = end + 1;
  }
  return name;
}

// The path of a distinguished name. A "/" in it would end the name, so it is escaped.
std::u16string pathOf(const std::u16string& distinguishedName) {
  std::u16string path = u"LDAP://";
  for (std::size_t i = 0; i < distinguishedName.size(); ++i) {
    const char16_t unit = distinguishedName[i];
    if (unit == u'/') path += u'\\';
    path += unit;
    // What is escaped already is taken over with its mark.
    if (unit == u'\\' && i + 1 < distinguishedName.size()) path += distinguishedName[++i];
  }
  return path;
}

std::string attributeText(DirectoryObject& object, const char16_t* attribute) {
  std::u16string value;
  return failed(object.get(attribute, value)) ? "" : fieldText(value);
}

// No mail can go to such an address, and a line break would split the lines of the logs.
bool holdsControl(const std::string& address) {
  return std::any_of(address.begin(), address.end(), [](char c) { return base::isControl(c); });
}

void setDefaults(UserDirectoryData& data) {
  data.email = kNoEmail;
  data.firstName.clear();
  data.lastName.clear();
}

// `traced`: with a debug line for each step. `object` becomes the user's, when there is one.
HResult lookUp(DirectoryAccess& access, DirectorySearch* search, const std::u16string& logonName,
               config::DebugLog& log, bool traced, std::FILE* foundUsers,
               std::unique_ptr<DirectoryObject>& object, UserDirectoryData& data) {
  if (traced) log.print("    find user by name\n");
  HResult status = platform::kOk;
  // A search from memory would take most of the time of a list of many users.
  if (search != nullptr && foundUsers == nullptr) object = access.userInMemory(logonName);
  if (object == nullptr) status = FindUserByName(access, search, logonName, object, foundUsers);
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
  domainName_ = dnsName(binding.context);
  return domain_ != nullptr ? 1 : 0;
}

void DomainDirectory::unbindDomain() {
  domain_.reset();
  managers_.clear();
  access_.uninitialise();
}

void DomainDirectory::readDetails(bool wanted) {
  details_ = wanted;
  access_.readPersonalDetails(wanted);
}

HResult DomainDirectory::getEmailBound(const std::u16string& logonName, UserDirectoryData& data) {
  if (logonName.empty()) return platform::kOk;
  setDefaults(data);
  std::unique_ptr<DirectoryObject> user;
  const HResult status =
      lookUp(access_, domain_.get(), logonName, log_, false, foundUsers_, user, data);
  if (details_ && user != nullptr) takeDetails(*user, data);
  return status;
}

// The object has its attributes already: getUserEmail() read it.
void DomainDirectory::takeDetails(DirectoryObject& user, UserDirectoryData& data) {
  data.domain = domainName_;
  data.displayName = attributeText(user, u"displayName");
  data.preferredLanguage = attributeText(user, u"preferredLanguage");
  if (failed(user.get(u"manager", data.manager))) data.manager.clear();
  if (data.manager.empty()) return;
  const Manager& found = manager(data.manager);
  data.managerName = found.name;
  data.managerEmail = found.email;
  data.managerLanguage = found.language;
}

const DomainDirectory::Manager& DomainDirectory::manager(const std::u16string& distinguishedName) {
  const auto [place, isNew] = managers_.try_emplace(distinguishedName);
  Manager& found = place->second;
  if (!isNew) return found;
  std::unique_ptr<DirectoryObject> object;
  const HResult status =
      access_.openObject(pathOf(distinguishedName), kAdsSecureAuthentication, object);
  if (failed(status)) {
    log_.print("    manager %s not found: %x\n", platform::utf16ToAnsi(distinguishedName).c_str(),
               status);
    return found;
  }
  found.name = attributeText(*object, u"displayName");
  if (found.name.empty()) {
    const std::string first = attributeText(*object, u"givenName");
    const std::string last = attributeText(*object, u"sn");
    found.name = first + (first.empty() || last.empty() ? "" : " ") + last;
  }
  found.language = attributeText(*object, u"preferredLanguage");
  found.email = attributeText(*object, u"mail");
  if (holdsControl(found.email)) found.email.clear();
  return found;
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
    std::unique_ptr<DirectoryObject> user;
    status = lookUp(access_, binding.search.get(), logonName, log_, true, foundUsers_, user, data);
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
    std::unique_ptr<DirectoryObject> user;
    status = lookUp(access_, binding.search.get(), logonName, log_, false, foundUsers_, user, data);
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
  if (holdsControl(data.email)) {
    log.print("    EmailAddress holds a control character, which no address does.\n");
    data.email = kNoEmail;
  }
  log.print("    getUserEmail() end**\n");
  return status;
}

}  // namespace directory
