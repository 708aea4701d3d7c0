// The times at which the directory itself lets passwords expire, by its own policies: asked for
// with each account where the account database brings them, else read by one search over the
// domain. Used by a pass with a policy that wants them, on its thread.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

#include "config/debug_log.h"
#include "platform/directory/account_database.h"
#include "platform/directory/directory_access.h"

namespace directory {

class ExpiryTimes {
 public:
  ExpiryTimes(platform::AccountDatabase& accounts, platform::DirectoryAccess& access,
              config::DebugLog& log)
      : accounts_(accounts), access_(access), log_(log) {}

  // Before the pass begins: whether they are wanted in it.
  void want(bool wanted);
  // When it has begun. Empty, or in one line why none could be read.
  std::string load();

  // A FILETIME or kNoExpiryTime; 0 when the directory does not say. `info` is the account's.
  std::int64_t of(const std::u16string& name, const platform::UserInfo& info) const;
  // The same as it is now, for an account that was read again. A failure says why.
  platform::HResult now(const std::u16string& name, const platform::UserInfo& info,
                        std::int64_t& time);

 private:
  platform::HResult search(const std::u16string& filter);
  platform::HResult takeTimes(const std::u16string& filter);

  platform::AccountDatabase& accounts_;
  platform::DirectoryAccess& access_;
  config::DebugLog& log_;
  bool wanted_ = false;
  bool withAccounts_ = false;
  bool loaded_ = false;
  std::u16string path_;                                  // of the domain, once it is known
  std::unordered_map<std::string, std::int64_t> times_;  // by the folded logon name
};

}  // namespace directory
