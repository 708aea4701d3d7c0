// Users as the rows of an answer: what a pass would do today with each of them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "console/calendar.h"
#include "console/table.h"
#include "notify/user_record.h"
#include "service/outcome.h"

namespace console {

// "mail", "force", ...: the name of an outcome for programs and options. Never changed.
const char* outcomeCode(service::Outcome outcome);
std::vector<std::string> outcomeCodes();

// What is shown of a user; small, for sites with many. Texts are ANSI, and empty when there is
// none; those of the directory are the record's and the data's that the line was made from.
struct UserLine {
  std::string_view user, address, firstName, lastName;
  std::string why;  // see whyToday()
  int slot = 0;
  bool leftOut = false;  // by the policy's exclude list
  service::Outcome outcome = service::Outcome::Skipped;
  bool mailed = false, forced = false;  // whether that would happen today
  // Nothing for those that are left alone, and for accounts that cannot be read.
  std::optional<std::uint32_t> age;        // days
  std::optional<std::int32_t> maximumAge;  // likewise
  std::optional<std::int32_t> daysLeft;
  std::optional<std::int64_t> expires;  // the day, as Calendar counts
};
// `data` is the user's, which the record need not have. Both must outlive the line.
UserLine lineOf(const notify::UserRecord& user, const directory::UserDirectoryData& data,
                const Calendar& calendar);

std::vector<Column> userColumns();
// `row` becomes the line's values, which borrow its texts; it is handed in, so that one serves for
// many lines.
void fillUserRow(const UserLine& line, std::vector<Value>& row);

// When the password reaches its maximum age, as Calendar counts; nothing when it is not known, or
// the directory lets it last for ever.
std::optional<std::int64_t> expiryMoment(const notify::UserRecord& user);

// Why the user's day comes to its outcome, without what the outcome's label says; may be empty.
std::string whyToday(const notify::UserRecord& user);

Tone outcomeTone(service::Outcome outcome);

}  // namespace console
