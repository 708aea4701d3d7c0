// Looks up e-mail addresses and names that the pass itself did not, because it needed them for
// those only whom it mails. For observers of a dry run: the directory is read as long as it lasts.
#pragma once

#include <string>

#include "config/debug_log.h"
#include "directory/domain_directory.h"

namespace console {

class UserLookUp {
 public:
  // Whether language, manager and the like are looked up, too, where the pass that follows wants
  // them. To be made before that pass.
  enum class Details { NotWanted, Wanted };

  // `access` is borrowed.
  explicit UserLookUp(platform::DirectoryAccess& access, Details details = Details::NotWanted);
  ~UserLookUp();
  UserLookUp(const UserLookUp&) = delete;
  UserLookUp& operator=(const UserLookUp&) = delete;

  // Fills in the data of the user with this logon name (ANSI) as the pass would, unless the pass
  // did. False when the directory is of no help.
  bool complete(const std::string& username, directory::UserDirectoryData& data);

 private:
  enum class Binding { None, Bound, Failed };

  config::DebugLog log_ = config::DebugLog::nowhere();
  directory::DomainDirectory domain_;
  Binding binding_ = Binding::None;
};

}  // namespace console
