// One pass over all users: loads settings and policies, lists the domain's users, visits the
// policies in their order, has each user examined, reports. One object makes one pass.
#pragma once

#include <array>
#include <cstdio>
#include <functional>
#include <string>

#include "config/debug_log.h"
#include "directory/account_search.h"
#include "directory/domain_directory.h"
#include "notify/mail_transport.h"
#include "platform/host/host.h"
#include "service/directory_policy.h"
#include "service/edition_keys.h"
#include "service/manager_copies.h"
#include "service/pass_observer.h"
#include "service/pass_state.h"
#include "service/policy_table.h"
#include "service/service_values.h"
#include "service/user_examiner.h"
#include "service/user_list.h"

namespace service {

// What outlives a pass: the run's, and the same for all its passes.
struct RunContext {
  platform::Host host;
  ServiceValues values;
  PassObserver* observer;  // borrowed; null: nobody watches
  std::FILE* foundUsers;   // where look-ups print whom they found; borrowed, null for nowhere
  config::DebugLog log;
  EditionKeys edition;                  // its open key is kept from pass to pass
  double uptimeSeconds = 0;             // when the run began
  std::uint32_t unsavedMailingDay = 0;  // as PassState has it; of the last pass that mailed
  // Whether somebody wants the pass to end after the user in hand; empty: nobody can.
  std::function<bool()> stopRequested{};
  // How mails leave; empty: over the mail library.
  notify::MailTransportMaker makeTransport{};
  notify::PassMode mode = notify::PassMode::Live;
  bool mailsReport = true;  // where the settings say so
  // Where the report is written: in a dry pass whatever the settings say, unless this is empty.
  std::string reportFile = config::kReportFile;
  // Of the lists only this logon name is examined; empty: all.
  std::string onlyUser{};
};

class Pass {
 public:
  // `run` is borrowed.
  explicit Pass(RunContext& run);

  // Blocks for as long as the directory and the mail server take.
  PassRecord make();

 private:
  void loadSettings();
  void checkSettings();
  void loadTemplates();
  void sendTestEmail();
  void listDomainUsers();
  std::string keepDomainUsers();
  UserList openList(const std::string& file) const;
  void splitCustomMessage();
  void guardMailingDay();
  void startReportAndLogs();
  void logPolicyOrder(const std::array<int, kPolicySlots>& order);
  void bindDirectory();
  void compareClocks();
  void searchAccounts();
  void noteLocalAccounts();
  void visitSlot(int slot);
  void examineList(PolicyInHand& policy, const PolicyFiles& files);
  void examineUsers(const PolicyInHand& policy, const std::string& file, UserList& list);
  void settleHeldUsers();
  bool awaitRetries(std::uint32_t round);
  void countUser(const notify::UserRecord& user, const std::string& listName);
  bool stopRequested() const { return run_.stopRequested && run_.stopRequested(); }
  bool isToStop();
  bool wantsReportMailed() const;
  void finishReport();
  notify::MailOutcome mailReport();

  RunContext& run_;
  config::DebugLog& log_;
  directory::DomainDirectory domain_;
  PassState pass_;
  config::Findings& findings_;  // of the pass's record
  PolicyTable slots_;
  bool wroteUsersList_ = false;  // of the domain's users
  std::string domainUsers_;      // the list, in a dry pass
  bool usersListLost_ = false;   // a policy needs it, and it could not be written
  bool testEmailFailed_ = false;
  bool stopped_ = false;  // said so
  directory::AccountSearch accountSearch_;
  DirectoryPolicy directoryPolicy_;
  UserExaminer examiner_;
  ManagerCopies managers_;
};

}  // namespace service
