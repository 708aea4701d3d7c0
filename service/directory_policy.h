// The maximum age that the directory's own policies give each user, for the policies with
// "useDirectoryPolicy". Used by the thread of the pass; one object a pass.
#pragma once

#include <cstdint>
#include <string>

#include "config/debug_log.h"
#include "config/findings.h"
#include "directory/expiry_times.h"
#include "directory/password_expiry.h"
#include "notify/user_record.h"
#include "platform/directory/account_database.h"
#include "platform/host/host.h"
#include "service/policy_table.h"

namespace service {

class DirectoryPolicy {
 public:
  DirectoryPolicy(platform::Host host, config::DebugLog& log)
      : host_(host), log_(log), times_(host.accounts, host.directory, log) {}

  // Before the pass reads the directory: the times are asked for when a policy that is visited
  // wants them.
  void prepare(const PolicyTable& slots);
  // When it has begun. What cannot be read becomes a problem.
  void load(config::Findings& findings);
  // Says of how many users the directory gave no time, and drops what was read.
  void finish(config::Findings& findings);

  enum class Reading { OfThePass, Current };
  // For a user with directoryPolicy: sets maxAge and passwordExpires, or the reason to skip him.
  // `info` is his account. Empty, or why the current time could not be read.
  std::string apply(const std::u16string& name, const platform::UserInfo& info, Reading reading,
                    notify::UserRecord& user);

 private:
  std::int64_t domainTime(const platform::UserInfo& info, std::int64_t now);

  platform::Host host_;
  config::DebugLog& log_;
  directory::ExpiryTimes times_;
  bool wanted_ = false;
  platform::DomainModals domain_;
  bool domainKnown_ = false;
  std::uint64_t byDomain_ = 0;  // users
};

}  // namespace service
