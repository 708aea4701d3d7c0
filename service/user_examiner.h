// What a pass does with one line of an include file: screens the account, works out the days that
// are left, warns, expires, reports. Used by the expiration run only, on its thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_set>

#include "config/debug_log.h"
#include "directory/account_search.h"
#include "directory/domain_directory.h"
#include "notify/user_record.h"
#include "platform/host/host.h"
#include "service/directory_policy.h"
#include "service/pass_state.h"

namespace service {

// The policy slot that is visited.
struct PolicyInHand {
  int slot = 0;
  std::string name;         // ANSI
  std::int32_t maxAge = 0;  // days
  std::uint32_t emailWarnings = 0;
  bool directoryPolicy = false;              // useDirectoryPolicy: maxAge is not that of its users
  std::unordered_set<std::string> excluded;  // keys of the names in the exclude file
};

// Why a user cannot be notified of the expiry in this pass.
enum class NoNotice {
  MailFailed,
  PolicyMailsNobody,
  AddressUnknown,  // the look-up failed
  HeldBack,        // see WarningMemory
  MailedToday,     // limitEmails
};
inline constexpr int kNoNoticeReasons = 5;

class UserExaminer {
 public:
  UserExaminer(platform::Host host, config::DebugLog& log, directory::DomainDirectory& domain,
               const directory::AccountSearch& search, DirectoryPolicy& directoryPolicy,
               PassState& pass)
      : host_(host),
        log_(log),
        domain_(domain),
        search_(search),
        directoryPolicy_(directoryPolicy),
        pass_(pass) {}

  // `listed` is the name as the list spells it, in the ANSI code page.
  notify::UserRecord examine(const PolicyInHand& policy, const std::string& listed);

  // Carries out an expiry that was held: reads the account again, notifies the user where that is
  // wanted, forces the change. Answers why the user was to be notified, was not, and so was not
  // expired.
  std::optional<NoNotice> expireHeld(notify::UserRecord& user);

  // Tries a warning again that waits (mailHeld), unless it has lost its reason meanwhile.
  void retryWarning(notify::UserRecord& user);

 private:
  platform::AccountResult readAccount(const std::u16string& name, const notify::UserRecord& user,
                                      platform::UserInfo& info) const;
  void screenAccount(const std::u16string& name, notify::UserRecord& user);
  void screenFlags(std::uint32_t flags, notify::UserRecord& user);
  void claimUser(const std::u16string& name, notify::UserRecord& user);
  void judge(const std::u16string& name, notify::UserRecord& user);
  bool readAge(const std::u16string& name, notify::UserRecord& user);
  bool isInWarningPeriod(const notify::UserRecord& user) const;
  void warn(const std::u16string& name, notify::UserRecord& user);
  void lookUpEmail(const std::u16string& name, notify::UserRecord& user);
  bool matchesWarningDay(std::int32_t countdown);
  bool isCopyDue(const notify::UserRecord& user, bool dueToday) const;
  std::string reasonsAgainstMail(const notify::UserRecord& user) const;
  void sendWarning(bool onWarningDay, notify::UserRecord& user);
  void expire(const std::u16string& name, notify::UserRecord& user);
  bool mailsOnlyWithExpiry(const notify::UserRecord& user, bool dueToday) const;
  std::optional<NoNotice> notifyOfExpiry(const std::u16string& name, notify::UserRecord& user);
  bool forceChange(const std::u16string& name, notify::UserRecord& user);
  platform::AccountResult writeExpiry(const std::u16string& name, const notify::UserRecord& user);
  std::uint32_t noMailReasons(const notify::UserRecord& user, bool dueToday) const;

  platform::Host host_;
  config::DebugLog& log_;
  directory::DomainDirectory& domain_;
  const directory::AccountSearch& search_;
  DirectoryPolicy& directoryPolicy_;
  PassState& pass_;
};

}  // namespace service
