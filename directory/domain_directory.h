// Binds to the domain, finds a user's e-mail address and names, lists the domain's users.
// All access is with the credentials of the process. Used by the thread of the pass. Nothing here
// ends a pass: a failure is a status and a line in the debug log.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

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

  // Opens the persistent binding to the default naming context; 1 when it is open, else 0.
  int bindDomain();
  // Releases it, if any.
  void unbindDomain();
  // The look-up over the persistent binding. An empty name leaves `data` untouched.
  platform::HResult getEmailBound(const std::u16string& logonName, UserDirectoryData& data);

  // Whole look-ups with a binding of their own; getEmail2 writes fewer debug lines. Not used by a
  // pass.
  platform::HResult getEmail(const std::u16string& logonName, UserDirectoryData& data);
  platform::HResult getEmail2(const std::u16string& logonName, UserDirectoryData& data);

  // Writes kDomainUsersFile: the logon names of all enabled users, one per line. False when the
  // file cannot be written whole.
  bool writeDomainUsersList();

 private:
  platform::DirectoryAccess& access_;
  config::DebugLog& log_;
  std::FILE* foundUsers_;
  std::unique_ptr<platform::DirectorySearch> domain_;  // the persistent binding; null: not bound
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

// "LDAP://" and the domain's default naming context; empty when it cannot be had.
std::u16string getRootDse(platform::DirectoryAccess& access, config::DebugLog& log);

// A paged subtree search on that path; null when it cannot be opened.
std::unique_ptr<platform::DirectorySearch> openDomainSearch(platform::DirectoryAccess& access,
                                                            const std::u16string& path);

}  // namespace directory
