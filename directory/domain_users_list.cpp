// Writes the list of all enabled users of the domain, which a pass takes as its work list. One of
// the operations of DomainDirectory.
#include <cstdio>
#include <functional>

#include "config/pass_files.h"
#include "directory/domain_directory.h"
#include "platform/directory/ldap_filter.h"
#include "platform/system/files.h"
#include "platform/text/code_page.h"

namespace directory {

using platform::DirectorySearch;
using platform::HResult;

namespace {

constexpr std::uint32_t kPageRows = 100000;
// The matching rule is "has these bits": accounts that are not disabled.
constexpr const char16_t* kEnabledUsers =
    u"(&(objectCategory=person)(objectClass=user)"
    u"(!userAccountControl:1.2.840.113556.1.4.803:=2)";  // left open
constexpr const char16_t* kLogonName = u"samAccountName";

using NameSink = DomainDirectory::NameSink;

HResult takeRow(platform::SearchRows& rows, const NameSink& sink) {
  platform::SearchColumn column;
  const HResult read = rows.column(kLogonName, column);
  if (read == platform::kAdsColumnNotSet) return platform::kOk;
  if (platform::failed(read)) return read;
  if (column.type != platform::AdsType::CaseIgnoreString) return platform::kOk;
  const std::string name = platform::utf16ToAnsi(column.firstValue);
  if (name.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos) return platform::kOk;
  sink(name);
  return platform::kOk;
}

}  // namespace

std::string DomainDirectory::writeDomainUsersList() {
  const std::string file = config::kDomainUsersFile;
  platform::File list = platform::openFile(config::kDomainUsersFile, "w");
  if (list == nullptr) return file + " cannot be written";
  std::string problem = forEachDomainUser([&list](const std::string& name) {
    std::fwrite(name.data(), 1, name.size(), list.get());
    std::fputc('\n', list.get());
  });
  const bool written = std::ferror(list.get()) == 0;
  if (std::fclose(list.release()) != 0 || !written) return file + " cannot be written";
  return problem;
}

std::string DomainDirectory::forEachDomainUser(const NameSink& sink) {
  access_.initialise();
  const HResult status = listUsers(sink);
  const std::string why = platform::failed(status) ? access_.errorText(status) : "";
  access_.uninitialise();
  return platform::failed(status)
             ? config::kDomainUsersFile + (": the users of the domain cannot be listed: " + why)
             : "";
}

HResult DomainDirectory::listUsers(const NameSink& sink) {
  std::u16string path;
  std::unique_ptr<DirectorySearch> search;
  std::unique_ptr<platform::SearchRows> rows;
  std::u16string filter = kEnabledUsers;
  if (!listedOnly_.empty()) {
    filter += u"(samAccountName=" + platform::escapeFilterValue(listedOnly_) + u")";
  }
  HResult status = getRootDse(access_, log_, path);
  if (!platform::failed(status)) status = openDomainSearch(access_, path, search);
  if (!platform::failed(status)) status = search->execute(filter + u")", {kLogonName}, rows);
  if (platform::failed(status)) return status;
  return forEachRow(access_, *rows,
                    [&sink](platform::SearchRows& row) { return takeRow(row, sink); });
}

HResult forEachRow(platform::DirectoryAccess& access, platform::SearchRows& rows,
                   const std::function<HResult(platform::SearchRows&)>& take) {
  for (;;) {
    HResult status = rows.next();
    if (status == platform::kAdsNoMoreRows) {
      // With this code only the page has no more; any other ends the list.
      if (access.lastError().code != platform::kErrorMoreDirectoryData) return platform::kOk;
      continue;
    }
    if (!platform::failed(status)) status = take(rows);
    if (platform::failed(status)) return status;
  }
}

HResult getRootDse(platform::DirectoryAccess& access, config::DebugLog& log, std::u16string& path) {
  log.print("-begin getRootDse\n");
  std::u16string context;
  std::unique_ptr<platform::DirectoryObject> rootDse;
  HResult status = access.getObject(u"LDAP://RootDse", rootDse);
  if (!platform::failed(status)) status = rootDse->get(u"DefaultNamingContext", context);
  if (!platform::failed(status)) path = u"LDAP://" + context;
  rootDse.reset();
  log.print("-end getRootDse\n");
  return status;
}

HResult openDomainSearch(platform::DirectoryAccess& access, const std::u16string& path,
                         std::unique_ptr<DirectorySearch>& search) {
  const HResult status = access.getSearch(path, search);
  if (platform::failed(status)) return status;
  search->setScope(platform::SearchScope::Subtree);
  search->setPageSize(kPageRows);
  return status;
}

}  // namespace directory
