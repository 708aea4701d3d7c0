// What one search over the domain brings of its accounts, where it would cost a call for each: what
// their screening needs, and the times at which the directory itself lets passwords expire, by its
// own policies. Used by a pass, on its thread. Names are logon names, without regard to case.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "config/debug_log.h"
#include "platform/directory/account_database.h"
#include "platform/directory/directory_access.h"
#include "platform/system/clock.h"

namespace directory {

// How much older than the search says a password may be in the account calls, in seconds: these
// count by whole seconds, and by the time at which they are made.
inline constexpr std::uint32_t kAgeTolerance = 60;

class AccountSearch {
 public:
  AccountSearch(platform::AccountDatabase& accounts, platform::DirectoryAccess& access,
                platform::Clock& clock, config::DebugLog& log)
      : accounts_(accounts), access_(access), clock_(clock), log_(log) {}

  // Before the pass begins: whether the times of expiry are wanted in it. The account database
  // brings them itself, if it can.
  void wantTimes(bool wanted);
  // When it has begun: searches for the times, if they are wanted, and for the screening, if
  // `screening` is set; of one account alone, if `onlyUser` is not empty. Empty, or in one line why
  // nothing could be read.
  std::string load(bool screening, const std::u16string& onlyUser);
  // After a load for the screening: the name of the account by which search and account calls were
  // compared, and found to differ; nothing is screened by the search then. Empty: they agree.
  const std::u16string& differsAbout() const { return differsAbout_; }

  // What the account calls would say of the account now, but for `native`. False when the search
  // did not bring it, or not for certain.
  bool find(const std::u16string& name, platform::UserInfo& info) const;

  // A FILETIME or kNoExpiryTime; 0 when the directory does not say. `info` is the account's.
  std::int64_t timeOf(const std::u16string& name, const platform::UserInfo& info) const;
  // The same as it is now, for an account that was read again. A failure says why.
  platform::HResult timeNow(const std::u16string& name, const platform::UserInfo& info,
                            std::int64_t& time);
  // Forgets what was read.
  void drop();

 private:
  struct Account {
    std::int64_t expires = 0;      // as timeOf has it
    std::int64_t passwordSet = 0;  // FILETIME; 0: not to be screened by
    std::uint32_t flags = 0;       // as UserInfo has them
  };

  platform::HResult search(const std::u16string& user,
                           const std::vector<std::u16string>& attributes);
  platform::HResult takeAccounts(const std::u16string& user,
                                 const std::vector<std::u16string>& attributes);
  platform::HResult takeAccount(platform::SearchRows& row);
  void compareOldest();

  platform::AccountDatabase& accounts_;
  platform::DirectoryAccess& access_;
  platform::Clock& clock_;
  config::DebugLog& log_;
  bool timesWanted_ = false;
  bool timesWithAccounts_ = false;
  bool timesLoaded_ = false;
  bool screens_ = false;
  std::u16string path_;  // of the domain, once it is known
  std::unordered_map<std::string, Account> found_;
  std::u16string oldest_;  // of the accounts without flags, that with the oldest password
  std::int64_t oldestSet_ = 0;
  std::u16string differsAbout_;
};

}  // namespace directory
