// The expiration run: the body of the worker thread. It prepares once and then passes over all
// users, again and again, with a sleep between two passes. Nothing that happens in a pass ends the
// run. One object per worker, used by that thread only. A pass blocks for as long as the directory
// and the mail server take.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "config/debug_log.h"
#include "directory/domain_directory.h"
#include "platform/host/host.h"
#include "service/policy_table.h"
#include "service/run_observer.h"
#include "service/service_values.h"
#include "service/user_examiner.h"
#include "service/user_list.h"

namespace service {

class ExpirationRun {
 public:
  // `observer` is borrowed and may be null. `foundUsers` is where look-ups print whom they found:
  // borrowed, null for nowhere.
  ExpirationRun(platform::Host host, const ServiceValues& values, RunObserver* observer,
                std::FILE* foundUsers = stdout);

  // Once, before the first pass: the logo file, the kind of machine, which edition's keys to use.
  void prepare();
  // How long a worker that has just started has yet to wait for the machine to have come up, in ms.
  std::uint32_t startDelayMs() const;
  RunSummary pass();
  // The time to sleep before the next pass, in ms.
  std::uint32_t sleepMs() const;

 private:
  void decideEdition();
  void beginPass();
  void checkSettingsKey();
  void sendTestEmail(RunSummary& summary);
  void listDomainUsers();
  void splitCustomMessage();
  void guardMailingDay();
  void startReportAndLogs();
  void logPolicyOrder(const std::array<int, kPolicySlots>& order);
  void visitSlot(int slot);
  void examineList(PolicyInHand& policy, const PolicyFiles& files);
  void tellProblem(const std::string& problem);
  void finishPass(RunSummary& summary);

  platform::Host host_;
  ServiceValues values_;
  RunObserver* observer_;
  config::DebugLog log_;
  directory::DomainDirectory domain_;
  double uptimeSeconds_ = 0;
  bool memberServer_ = false;
  std::string settingsKeyPath_;
  std::unique_ptr<platform::RegistryKey> settingsKey_;  // kept from pass to pass
  PolicyTable slots_;
  bool hasUsersList_ = true;  // of this pass, as far as a policy needs it
  PassState pass_;
  UserExaminer examiner_;
};

}  // namespace service
