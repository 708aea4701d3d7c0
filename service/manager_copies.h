// The copies for managers (managerDays): collected while users are examined, mailed after the mails
// to the users, one mail for each manager. Used by the pass only, on its thread.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>

#include "config/debug_log.h"
#include "notify/manager_email.h"
#include "platform/host/host.h"
#include "service/pass_state.h"

namespace service {

class ManagerCopies {
 public:
  // `log` and `pass` are borrowed.
  ManagerCopies(platform::Host host, config::DebugLog& log, PassState& pass,
                std::function<bool()> isToStop)
      : host_(host), log_(log), pass_(pass), isToStop_(std::move(isToStop)) {}

  // A user whose outcome is known. Kept when he is due a copy and has a manager.
  void add(const notify::UserRecord& user);
  // Mails them, and tries again what was refused for now, as often as users' mails (smtpRetries).
  // Blocks for as long as the mail server takes. Managers without an address become problems.
  void send();

 private:
  using Staffs = std::map<std::u16string, notify::Staff>;  // by the manager's distinguished name

  bool hasAddress(const notify::Staff& staff);
  bool isSettled(const notify::Staff& staff, bool mayRetry);

  platform::Host host_;
  config::DebugLog& log_;
  PassState& pass_;
  std::function<bool()> isToStop_;
  Staffs staffs_;  // those who are still to be mailed
  MailCounts counts_;
};

}  // namespace service
