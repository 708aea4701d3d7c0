#include "service/held_expiries.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/format_text.h"

namespace service {
namespace {

using notify::Expiry;
using notify::UserRecord;

// Passwords whose age is not known come last: the directory refuses to expire them.
std::vector<UserRecord*> oldestFirst(std::vector<HeldUser>& held) {
  std::vector<UserRecord*> users;
  for (HeldUser& one : held) {
    if (one.user.expiryHeld) users.push_back(&one.user);
  }
  std::stable_sort(users.begin(), users.end(), [](const UserRecord* left, const UserRecord* right) {
    if (left->passwordSet == 0 || right->passwordSet == 0) return left->passwordSet != 0;
    return left->passwordSet < right->passwordSet;
  });
  return users;
}

std::string passwords(std::uint64_t count) {
  return base::formatText("%llu %s", static_cast<unsigned long long>(count),
                          count == 1 ? "password was" : "passwords were");
}

void reportNotNotified(const std::array<std::uint64_t, kNoNoticeReasons>& counts,
                       config::Findings& findings) {
  const auto text = [&](NoNotice reason, const char* words) {
    const std::uint64_t count = counts[static_cast<std::size_t>(reason)];
    return count == 0 ? "" : passwords(count) + " not expired (expireOnlyNotified): " + words;
  };
  for (const std::string& problem : {
           text(NoNotice::MailFailed, "no mail about it was accepted"),
           text(NoNotice::PolicyMailsNobody,
                "the policy mails nobody; switch its emailWarnings on, or this setting off"),
           text(NoNotice::AddressUnknown, "the user's address could not be looked up"),
           text(NoNotice::HeldBack, "warnings are held back in this pass"),
       }) {
    if (!problem.empty()) findings.problem(problem);
  }
  const std::string tomorrow =
      text(NoNotice::MailedToday, "no more warnings are mailed today (limitEmails)");
  if (!tomorrow.empty()) findings.note(tomorrow);
}

}  // namespace

void settleExpiries(UserExaminer& examiner, PassState& pass,
                    const std::function<bool()>& isToStop) {
  const std::uint64_t limit = pass.settings.maxExpirations;
  std::uint64_t forced = 0, overLimit = 0, stopped = 0;
  std::array<std::uint64_t, kNoNoticeReasons> notNotified{};
  for (UserRecord* user : oldestFirst(pass.held)) {
    if (stopped != 0 || isToStop()) {
      user->expiry = Expiry::PassStopped;
      ++stopped;
    } else if (limit != 0 && forced == limit) {
      user->expiry = Expiry::OverLimit;
      ++overLimit;
    } else {
      if (const std::optional<NoNotice> reason = examiner.expireHeld(*user)) {
        user->expiry = Expiry::NotNotified;
        ++notNotified[static_cast<std::size_t>(*reason)];
      }
      if (user->expiry == Expiry::Forced) ++forced;
    }
  }
  config::Findings& findings = pass.record.findings;
  if (overLimit != 0) {
    findings.problem(base::formatText("maxExpirations (%llu) is reached: ",
                                      static_cast<unsigned long long>(limit)) +
                     passwords(overLimit) + " left for later passes");
  }
  if (stopped != 0)
    findings.problem("the pass was stopped: " + passwords(stopped) + " not expired");
  reportNotNotified(notNotified, findings);
}

}  // namespace service
