#include "service/manager_copies.h"

#include <algorithm>
#include <cstdint>

#include "base/format_text.h"
#include "platform/text/code_page.h"

namespace service {
namespace {

using notify::Staff;

// Who has the fewest days left comes first.
void sortStaff(Staff& staff) {
  std::stable_sort(staff.begin(), staff.end(),
                   [](const notify::UserRecord& left, const notify::UserRecord& right) {
                     return left.daysLeft() < right.daysLeft();
                   });
}

}  // namespace

void ManagerCopies::add(const notify::UserRecord& user) {
  if (user.managerDue && !user.data.manager.empty()) staffs_[user.data.manager].push_back(user);
}

// False, and a problem, when the directory has none for the manager.
bool ManagerCopies::hasAddress(const Staff& staff) {
  const notify::UserRecord& first = staff.front();
  if (!first.data.managerEmail.empty()) return true;
  const std::string more =
      staff.size() == 1
          ? ""
          : base::formatText(" and %llu more", static_cast<unsigned long long>(staff.size() - 1));
  pass_.record.findings.problem("the manager of " + first.username + more + " (" +
                                platform::utf16ToAnsi(first.data.manager) +
                                ") was not mailed: the directory has no e-mail address for that "
                                "name");
  return false;
}

// Mails one manager. False when it is to be tried again.
bool ManagerCopies::isSettled(const Staff& staff, bool mayRetry) {
  if (pass_.memory.state() == WarningMemory::State::Held) return true;  // a problem already
  const notify::MailOutcome outcome =
      notify::sendManagerMail(pass_.mailContext(host_, log_), staff);
  if (!outcome.sent() && outcome.mayRetry && mayRetry) return false;
  if (outcome.sent()) {
    ++counts_.sent;
    for (const notify::UserRecord& user : staff) pass_.memory.copied(user);
  } else {
    ++counts_.failed;
    const directory::UserDirectoryData& data = staff.front().data;
    pass_.record.addFailedMail(
        "mail to the manager " + data.managerName + " <" + data.managerEmail + ">", outcome);
  }
  return true;
}

void ManagerCopies::send() {
  if (pass_.settings.managerDays == 0) return;
  const std::uint32_t retries = pass_.mostRetries();
  std::erase_if(staffs_, [this](const auto& staff) { return !hasAddress(staff.second); });
  for (auto& [manager, staff] : staffs_) sortStaff(staff);
  for (std::uint32_t round = 0;; ++round) {
    std::erase_if(staffs_, [this, round, retries](const auto& staff) {
      return !isToStop_() && isSettled(staff.second, round < retries);
    });
    if (staffs_.empty() || isToStop_() || !pass_.mailer->sleep(pass_.retryDelayMs(round))) break;
    pass_.mailer->allowOneMore();
  }
  pass_.record.managers = counts_;
  if (staffs_.empty()) return;
  pass_.record.findings.problem(base::formatText(
      "the pass was stopped: %llu %s not mailed", static_cast<unsigned long long>(staffs_.size()),
      staffs_.size() == 1 ? "manager was" : "managers were"));
}

}  // namespace service
