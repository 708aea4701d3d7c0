// Writes the list of all enabled users of the domain, which a pass takes as its work list. One of
// the operations of DomainDirectory.
#include <cstdio>

#include "config/pass_files.h"
#include "directory/domain_directory.h"
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
    u"(!userAccountControl:1.2.840.113556.1.4.803:=2))";
constexpr const char16_t* kLogonName = u"samAccountName";

void writeRow(platform::SearchRows& rows, std::FILE* list) {
  platform::SearchColumn column;
  if (platform::failed(rows.column(kLogonName, column))) return;
  if (column.type != platform::AdsType::CaseIgnoreString) return;
  std::string name = platform::utf16ToAnsi(column.firstValue);
  // No account can have such a name; written, it would stand as two.
  if (name.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos) return;
  name += '\n';
  std::fwrite(name.data(), 1, name.size(), list);
}

void writeRows(platform::DirectoryAccess& access, platform::SearchRows& rows, std::FILE* list) {
  for (;;) {
    const HResult moved = rows.next();
    if (platform::failed(moved)) return;
    if (moved != platform::kAdsNoMoreRows) {
      writeRow(rows, list);
    } else if (access.lastError().code != platform::kErrorMoreDirectoryData) {
      return;  // else only this page has no more
    }
  }
}

}  // namespace

bool DomainDirectory::writeDomainUsersList() {
  platform::File list = platform::openFile(config::kDomainUsersFile, "w");
  if (list == nullptr) return false;
  access_.initialise();
  {
    const std::u16string path = getRootDse(access_, log_);
    const std::unique_ptr<DirectorySearch> search = openDomainSearch(access_, path);
    std::unique_ptr<platform::SearchRows> rows;
    if (search != nullptr && !platform::failed(search->execute(kEnabledUsers, kLogonName, rows))) {
      writeRows(access_, *rows, list.get());
    }
  }
  access_.uninitialise();
  const bool written = std::ferror(list.get()) == 0;
  return std::fclose(list.release()) == 0 && written;
}

std::u16string getRootDse(platform::DirectoryAccess& access, config::DebugLog& log) {
  log.print("-begin getRootDse\n");
  std::u16string path;
  std::u16string context;
  std::unique_ptr<platform::DirectoryObject> rootDse;
  if (!platform::failed(access.getObject(u"LDAP://RootDse", rootDse)) &&
      !platform::failed(rootDse->get(u"DefaultNamingContext", context))) {
    path = u"LDAP://" + context;
  }
  rootDse.reset();
  log.print("-end getRootDse\n");
  return path;
}

std::unique_ptr<DirectorySearch> openDomainSearch(platform::DirectoryAccess& access,
                                                  const std::u16string& path) {
  std::unique_ptr<DirectorySearch> search;
  if (path.empty() || platform::failed(access.getSearch(path, search))) return nullptr;
  search->setScope(platform::SearchScope::Subtree);
  search->setPageSize(kPageRows);
  return search;
}

}  // namespace directory
