// The maximum age that the directory's own policies give each user, for the policies with
// "useDirectoryPolicy". Used by the thread of the pass; one object a pass.
#pragma once

#include <cstdint>
#include <string>

#include "config/debug_log.h"
#include "config/findings.h"
#include "directory/account_search.h"
#include "directory/password_expiry.h"
#include "notify/user_record.h"
#include "platform/directory/account_database.h"
#include "platform/host/host.h"
#include "service/policy_table.h"

namespace service {

class DirectoryPolicy {
 public:
  // `search` is borrowed; its load() comes between prepare() and begin().
  DirectoryPolicy(platform::Host host, config::DebugLog& log, directory::AccountSearch& search)
      : host_(host), log_(log), search_(search) {}

  // Before the pass reads the directory: the times are asked for when a policy that is visited
  // wants them.
  void prepare(const PolicyTable& slots);
  // When it has begun. `searchError`: why the times could not be read, which becomes a problem;
  // empty: they were.
  void begin(const std::string& searchError, config::Findings& findings);
  // Says of how many users the directory gave no time.
  void finish(config::Findings& findings);

  // Whether any policy takes its maximum ages from the directory.
  bool wanted() const { return wanted_; }

  enum class Reading { OfThePass, Current };
  // For a user with directoryPolicy: sets maxAge and passwordExpires, or the reason to skip him.
  // `info` is his account. Empty, or why the current time could not be read.
  std::string apply(const std::u16string& name, const platform::UserInfo& info, Reading reading,
                    notify::UserRecord& user);
  // What the first reading will make of maxAge and passwordExpires so many seconds from now. Says
  // and counts nothing.
  void foretell(const std::u16string& name, const platform::UserInfo& info, std::uint32_t seconds,
                notify::UserRecord& user) const;

 private:
  std::int64_t domainTime(const platform::UserInfo& info, std::int64_t now) const;

  platform::Host host_;
  config::DebugLog& log_;
  directory::AccountSearch& search_;
  bool wanted_ = false;
  platform::DomainModals domain_;
  bool domainKnown_ = false;
  std::uint64_t byDomain_ = 0;  // users
};

}  // namespace service
