// Which warnings were mailed: for each account and password the warning days that are done, kept in
// "logfiles\Norvyn-warnings-sent.log" so that no pass mails one twice and none is forgotten.
//
// One text line a mailing: checksum, date, time of the password's last change, days, name. Names
// and dates only. Lines are appended as mails are accepted; a line that a crash left half written
// is dropped when the file is read. finish() writes the file anew, without what is not needed any
// more. Used by one thread, by one pass at a time (the work folder's lock).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/timestamp.h"
#include "notify/pass_mode.h"
#include "platform/system/record_file.h"

namespace notify {

// A password of an account: who, and when it was set.
struct AccountPassword {
  std::string account;            // the folded logon name, UTF-8
  std::int64_t changedSeconds{};  // since 1601, UTC
};

class WarningLedger {
 public:
  // Of a dry pass: the file is only read, and what is recorded stays in memory.
  explicit WarningLedger(PassMode mode = PassMode::Live) : mode_(mode) {}

  // Reads the file and opens it for what is to come. False, with `problem` in words, when it can be
  // neither: then nothing may be mailed by it. `dropped` is the number of lines that were no
  // records; one, the last, is what a crash leaves.
  bool open(std::string& problem, std::size_t& dropped);

  // Whether the password's owner was mailed for this warning day.
  bool isDone(const AccountPassword& password, std::int32_t warningDay) const;
  // Whether he was mailed for this password on this local date at all.
  bool wasMailedOn(const AccountPassword& password, const base::LocalTime& date) const;

  // A mail was accepted, for these warning days (none: it went out for no particular one). False,
  // with `problem`, when that could not be kept on the disk; it is then kept in memory.
  bool record(const AccountPassword& password, const std::vector<std::int32_t>& warningDays,
              const base::LocalTime& date, std::string& problem);

  // Writes the file anew: of an account only what concerns its newest password, and nothing older
  // than kKeptDays. False, with `problem`, when it could not; the old file is then still there.
  bool finish(const base::LocalTime& today, std::string& problem);

  std::size_t accounts() const { return accounts_.size(); }

 private:
  struct Mailings {
    std::int64_t changedSeconds = 0;
    std::int64_t lastDate = 0;  // a day number; see dayNumber() in the .cpp file
    std::vector<std::int32_t> days;
  };

  bool take(std::string_view line);
  void add(const std::string& account, std::int64_t changedSeconds, std::int64_t date,
           const std::vector<std::int32_t>& days);
  const Mailings* find(const AccountPassword& password) const;

  std::unordered_map<std::string, Mailings> accounts_;
  PassMode mode_;
  std::unique_ptr<platform::RecordFile> file_;  // null in a dry pass
};

}  // namespace notify
