// One line of a policy's user list in a pass: what was found of the account, what was decided and
// why, what came of it. The examiner (service/) fills it; the row of the report and the warning
// mail are made from it, and so is every count and word about the user.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "directory/user_directory_data.h"
#include "notify/mail_outcome.h"

namespace notify {

// Reasons why a user's line was not gone into; several may hold.
enum SkipReason : std::uint32_t {
  kSkipComputerAccount = 1U << 0,
  kSkipExcluded = 1U << 1,
  kSkipDisabled = 1U << 2,
  kSkipNeverExpires = 1U << 3,
  kSkipCannotChange = 1U << 4,
  kSkipProcessedEarlier = 1U << 5,
  kSkipNameTooShort = 1U << 6,
  kSkipUnreadable = 1U << 7,  // with skipUnreadableAccounts only
};

// What became of a password at its maximum age.
enum class Expiry {
  NotDue,
  OnlyReported,  // a pass in report-only mode
  Forced,        // to be changed at next logon
  Refused,       // the directory did not take it
  Unanswered,    // the directory was asked and did not answer: it may be forced all the same
  Withheld,      // nothing is expired in this pass: see the pass's problems
  ByDirectory,   // of a policy with useDirectoryPolicy: the directory expires it, not the pass
  OverLimit,     // left for a later pass: maxExpirations is reached
  NotNotified,   // with expireOnlyNotified: no mail to the user was accepted
  PassStopped,   // before it came to this one
};

// Why a user in the warning period was not mailed, when no mail was tried. The first that holds.
enum class NoMail {
  None,
  PolicyMailsNobody,
  MailedToday,  // limitEmails
  LookUpFailed,
  NoSurname,  // without one a user has no address
  NoAddress,
  ReportOnly,
  HeldBack,    // see the pass's problems
  WithExpiry,  // mailed when the password is expired
  NotAWarningDay,
  Remembered,  // mailed by an earlier pass
  Changed,     // the password was, while the mail waited to be tried again
};
inline constexpr int kNoMailReasons = 12;
constexpr std::uint32_t noMailBit(NoMail reason) {
  return 1U << static_cast<unsigned>(reason);
}

inline constexpr std::int64_t kSecondsPerDay = 86400;

// Texts are in the ANSI code page.
struct UserRecord {
  // Found.
  int slot = 0;  // of the policy whose list names the user
  // In days: of that policy or, with useDirectoryPolicy, the user's own, reckoned from the time of
  // expiry so that daysLeft() is right.
  std::int32_t maxAge = 0;
  std::string policyName;           // of that policy
  bool directoryPolicy = false;     // its useDirectoryPolicy
  std::uint32_t emailWarnings = 0;  // of that policy: 1 when its users are warned
  std::string username;             // as the list spells it
  directory::UserDirectoryData data;
  bool accountFound = false;
  std::string lookUpError;        // why the directory was of no help with the address, else empty
  std::string readError;          // why the account could not be read again, else empty
  bool changeAlreadyDue = false;  // already to be changed at next logon
  std::uint32_t age = 0;          // days; that of the user before when the account cannot be read
  std::int64_t passwordSet = 0;   // s since 1601; 0: unknown, or to be changed at next logon
  // s since 1601, as the directory computes it; 0: unknown, never, or no directoryPolicy.
  std::int64_t passwordExpires = 0;

  // Decided.
  std::uint32_t skipReasons = 0;
  bool inWarningPeriod = false;
  std::uint32_t noMailReasons = 0;  // those that hold in the warning period, by noMailBit()
  bool emailDue = false;            // all conditions for a mail held, but perhaps the address
  bool managerDue = false;          // so is a copy to the manager, if the user has one
  // The expiry is decided at the end of the pass; until then only the report's row has its place.
  bool expiryHeld = false;
  std::optional<std::size_t> expiredRow;  // of the report, when the expiry is held
  // The mail was refused for now and is tried again at the end of the pass. What stands below is as
  // if it had failed. The row of the upcoming ones, if the user has one, has only its place.
  bool mailHeld = false;
  std::optional<std::size_t> upcomingRow;

  // Come of it.
  std::string emailedText = "no";  // as in the report
  bool mailFailed = false;
  MailOutcome mail;  // of the last try, when there was one
  NoMail noMail = NoMail::None;
  Expiry expiry = Expiry::NotDue;
  std::string refusal;  // the directory's words when the expiry was refused

  // When the password reaches its maximum age, in seconds since 1601; 0: not known.
  std::int64_t expiryTime() const {
    if (passwordExpires != 0 || directoryPolicy || passwordSet == 0) return passwordExpires;
    return passwordSet + maxAge * kSecondsPerDay;
  }
  // Days until the password expires: 0 on the day, negative afterwards.
  std::int32_t daysLeft() const { return static_cast<std::int32_t>(maxAge - age); }
};

}  // namespace notify
