// Binds to the domain, finds a user's e-mail address and names, lists the domain's users.
// All access is with the credentials of the process. Used by the thread of the pass. Nothing here
// ends a pass: a failure is a status and a line in the debug log.
#pragma once

#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "config/debug_log.h"
#include "directory/user_directory_data.h"
#include "platform/directory/directory_access.h"

namespace directory {

class DomainDirectory {
 public:
  // `foundUsers` is where look-ups print whom they found; borrowed, null for nowhere.
  DomainDirectory(platform::DirectoryAccess& access, config::DebugLog& log,
                  std::FILE* foundUsers = stdout)
      : access_(access), log_(log), foundUsers_(foundUsers) {}

  // Whether getEmailBound() also brings domain, display name, language and manager. No directory is
  // asked once more for them, but ADSI once for each manager. To be called before the pass begins
  // (DirectoryAccess::beginPass).
  void readDetails(bool wanted);
  // Opens the persistent binding to the default naming context; 1 when it is open, else 0.
  int bindDomain();
  // Why the last bindDomain() gave 0, in one line.
  const std::string& bindError() const { return bindError_; }
  // Releases it, if any.
  void unbindDomain();
  // The look-up over the persistent binding. An empty name leaves `data` untouched.
  platform::HResult getEmailBound(const std::u16string& logonName, UserDirectoryData& data);

  // Whole look-ups with a binding of their own; getEmail2 writes fewer debug lines. Public
  // operations that a pass has no use for.
  platform::HResult getEmail(const std::u16string& logonName, UserDirectoryData& data);
  platform::HResult getEmail2(const std::u16string& logonName, UserDirectoryData& data);

  // Writes kDomainUsersFile: the logon names of all enabled users, one per line. Empty when the
  // file is whole; else why it is not, in one line that begins with the file's name. A name that
  // would stand as two lines is left out: no account can have one.
  std::string writeDomainUsersList();
  // Hands over the same names, in the ANSI code page, one by one. Empty, or why not all of them.
  using NameSink = std::function<void(const std::string& name)>;
  std::string forEachDomainUser(const NameSink& sink);
  // Of the domain's users only this one is listed, or nobody; empty: all.
  void listOnly(std::u16string logonName) { listedOnly_ = std::move(logonName); }

 private:
  struct Manager {
    std::string name;
    std::string email;
    std::string language;
  };

  platform::HResult listUsers(const NameSink& sink);
  void takeDetails(platform::DirectoryObject& user, UserDirectoryData& data);
  const Manager& manager(const std::u16string& distinguishedName);

  platform::DirectoryAccess& access_;
  config::DebugLog& log_;
  std::FILE* foundUsers_;
  std::u16string listedOnly_;
  std::unique_ptr<platform::DirectorySearch> domain_;  // the persistent binding; null: not bound
  std::string bindError_;
  bool details_ = false;  // wanted
  std::string domainName_;
  std::map<std::u16string, Manager> managers_;  // those asked for, by distinguished name
};

// The object of the user with this logon name, found below `search`. The name is escaped (RFC 4515
// section 3), so that one with '*' or '(' is found as itself. kInvalidArgument for a missing
// binding or name, kFail when no entry was found. Each user found is printed to `foundUsers`,
// unless that is null.
platform::HResult FindUserByName(platform::DirectoryAccess& access,
                                 platform::DirectorySearch* search, const std::u16string& logonName,
                                 std::unique_ptr<platform::DirectoryObject>& user,
                                 std::FILE* foundUsers = stdout);

// Reads the three properties; the result of the last read.
platform::HResult getUserEmail(platform::DirectoryUser& user, config::DebugLog& log,
                               UserDirectoryData& data);

// `path` becomes "LDAP://" and the domain's default naming context. On failure it is left alone.
platform::HResult getRootDse(platform::DirectoryAccess& access, config::DebugLog& log,
                             std::u16string& path);

// A paged subtree search on that path. On failure `search` is left alone.
platform::HResult openDomainSearch(platform::DirectoryAccess& access, const std::u16string& path,
                                   std::unique_ptr<platform::DirectorySearch>& search);

// Gives the rows of a search, over all its pages, to `take`. Ends at the last row or at the first
// that cannot be had or taken, with its status.
platform::HResult forEachRow(platform::DirectoryAccess& access, platform::SearchRows& rows,
                             const std::function<platform::HResult(platform::SearchRows&)>& take);

}  // namespace directory
