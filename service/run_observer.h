// What a pass tells somebody who watches it: the console's progress bar and summary. A pass decides
// nothing by it.
#pragma once

#include <cstdint>
#include <string>

#include "platform/directory/directory_access.h"

namespace service {

// Reasons why a user's line was not gone into; several may hold.
enum SkipReason : std::uint32_t {
  kSkipComputerAccount = 1U << 0,
  kSkipExcluded = 1U << 1,
  kSkipDisabled = 1U << 2,
  kSkipNeverExpires = 1U << 3,
  kSkipCannotChange = 1U << 4,
  kSkipProcessedEarlier = 1U << 5,
  kSkipNameTooShort = 1U << 6,
};

// What became of a password at its maximum age.
enum class Expiry {
  NotDue,
  OnlyReported,  // a pass in report-only mode
  Forced,        // to be changed at next logon
  Refused,       // the directory did not take it
};

// Everything decided about one line of an include file.
struct UserVerdict {
  int slot = 0;
  std::string username;
  std::string email = "none";
  std::uint32_t skipReasons = 0;
  bool accountFound = false;
  bool changeAlreadyDue = false;  // already to be changed at next logon
  std::int32_t maxAge = 0;        // days
  std::uint32_t age = 0;          // days
  bool inWarningPeriod = false;
  std::string emailedText = "no";  // as in the report
  bool emailDue = false;           // all conditions for a mail held, but perhaps the address
  bool mailFailed = false;
  Expiry expiry = Expiry::NotDue;
  std::string refusal;  // the directory's words when the expiry was refused
};

struct RunSummary {
  bool reportOnly = false;  // effective
  bool testEmailFailed = false;
  bool directoryBound = false;
  platform::DirectoryError directoryError;  // when not bound
  bool smtpFailure = false;                 // some warning was not sent
  bool adminReportFailed = false;
  bool fileReportFailed = false;
  std::uint32_t upcomingRows = 0;
  std::uint32_t expiredUsers = 0;
};

class RunObserver {
 public:
  virtual ~RunObserver() = default;
  // A slot's include file was opened; `listBytes` is its size.
  virtual void slotStarted(int slot, const std::string& includeFile, std::uint64_t listBytes) {
    (void)slot, (void)includeFile, (void)listBytes;
  }
  // What went wrong, or may be a mistake, that is no single user's; in words for an administrator.
  virtual void problemFound(const std::string& problem) { (void)problem; }
  virtual void noteFound(const std::string& note) { (void)note; }
  virtual void userExamined(const UserVerdict& verdict) { (void)verdict; }
};

}  // namespace service
