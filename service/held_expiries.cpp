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

// A user whose mail waits to be tried again keeps the place among the oldest: while any waits, who
// comes behind the limit is not decided.
void HeldExpiries::settle() {
  const std::uint64_t limit = pass_.settings.maxExpirations;
  std::uint64_t waiting = 0;
  for (UserRecord* user : oldestFirst(pass_.held)) {
    user->mailHeld = user->mailHeld && !pass_.settings.expireOnlyNotified;
    if (stopped_ != 0 || isToStop_()) {
      user->expiry = Expiry::PassStopped;
      ++stopped_;
    } else if (limit != 0 && forced_ + unanswered_ + waiting >= limit) {
      if (waiting != 0) continue;
      user->expiry = Expiry::OverLimit;
      ++overLimit_;
    } else {
      const std::optional<NoNotice> reason = examiner_.expireHeld(*user);
      if (reason == NoNotice::MailFailed && user->mailHeld) {
        ++waiting;
        continue;
      }
      if (reason) {
        user->expiry = Expiry::NotNotified;
        ++notNotified_[static_cast<std::size_t>(*reason)];
      }
      if (user->expiry == Expiry::Forced) ++forced_;
      if (user->expiry == Expiry::Unanswered) ++unanswered_;
    }
    user->expiryHeld = false;
  }
}

void HeldExpiries::report() const {
  config::Findings& findings = pass_.record.findings;
  if (overLimit_ != 0) {
    const auto number = [](const char* format, std::uint64_t count) {
      return base::formatText(format, static_cast<unsigned long long>(count));
    };
    findings.problem(number("maxExpirations (%llu) is reached", pass_.settings.maxExpirations) +
                     (unanswered_ == 0
                          ? ""
                          : number(", with %llu that the directory did not answer", unanswered_)) +
                     ": " + passwords(overLimit_) + " left for later passes");
  }
  if (stopped_ != 0) {
    findings.problem("the pass was stopped: " + passwords(stopped_) + " not expired");
  }
  reportNotNotified(notNotified_, findings);
}

}  // namespace service
