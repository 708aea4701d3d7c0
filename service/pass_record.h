// What one whole pass came to. The pass fills it; the console's summary and the service's journal
// are made from it. It keeps no users, so its size does not grow with their number.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/timestamp.h"
#include "config/findings.h"
#include "service/outcome.h"

namespace service {

struct MailCounts {
  std::uint64_t sent = 0;
  std::uint64_t failed = 0;  // those not tried among them
};

struct PassRecord {
  notify::PassMode mode = notify::PassMode::Live;
  base::LocalTime began;
  std::uint32_t durationMs = 0;
  std::string settingsSource;   // the registry, as it names itself
  std::string settingsKey;      // below HKEY_LOCAL_MACHINE
  bool reportOnly = false;      // effective
  bool directoryBound = false;  // look-ups of addresses could be made

  int lists = 0;            // user lists that were opened
  std::uint64_t lines = 0;  // of them
  std::array<std::uint64_t, kOutcomes> counts{};
  MailCounts mails;                    // to users; in a dry pass those that would be
  std::optional<MailCounts> managers;  // likewise to managers; empty without managerDays
  std::uint64_t mailsNotTried = 0;     // of both: the mail server had been given up
  // Of the users who count as NotMailed: why.
  std::array<std::uint64_t, notify::kNoMailReasons> noMailCounts{};

  config::Findings findings;

  bool allWell() const { return findings.problems().count == 0; }
  MailCounts managerMails() const { return managers.value_or(MailCounts{}); }
  // Counts a line of a list, and says what of it is to be heard. `listName` is the policy and file
  // that name the user.
  void addUser(const notify::UserRecord& user, const std::string& listName);
  // A mail that was not sent: says why. `whose`: "mail to walter <walter@corp.example>".
  void addFailedMail(const std::string& whose, const notify::MailOutcome& mail);
  // Says what concerns many mails, or many accounts, once, with their number. To be called when all
  // users are in.
  void reportFailedMails();

 private:
  // Failures for the same reason, which is not about one user.
  struct Alike {
    std::string reason;
    std::uint64_t count = 0;
    std::string first;  // of the users
  };

  void addReadError(const notify::UserRecord& user);
  void addRefusal(const notify::UserRecord& user);

  std::vector<Alike> failedMails_;  // by the server's reason
  // A reason that was reported, and how many users behind that one have the same.
  struct Repeated {
    std::string reason;
    std::uint64_t more = 0;

    bool repeats(const std::string& text);
  };
  Repeated readErrors_, refusals_;
};

// The whole pass in one line: duration, lines, each outcome's count, mails, problems, notes.
std::string passLine(const PassRecord& pass);
// "24 h", "90 min", "12 s": rounded down, in the largest unit that leaves nothing over.
std::string spanText(std::uint32_t ms);

// One fact a line: lines and lists, each outcome's count, notes, problems.
std::string summaryText(const PassRecord& pass);
// Of these the notes and then the problems: the first of each, and how many more there are.
std::string findingsText(const config::Findings& findings);

}  // namespace service
