// Users as the rows of an answer: what a pass would do today with each of them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "console/calendar.h"
#include "console/table.h"
#include "notify/user_record.h"
#include "service/outcome.h"

namespace console {

// "mail", "force", ...: the name of an outcome for programs and options. Never changed.
const char* outcomeCode(service::Outcome outcome);
std::vector<std::string> outcomeCodes();

std::vector<Column> userColumns();
std::vector<Value> userRow(const notify::UserRecord& user, const Calendar& calendar);

// When the password reaches its maximum age, as Calendar counts; nothing when it is not known.
std::optional<std::int64_t> expiryMoment(const notify::UserRecord& user);

// Why the user's day comes to its outcome, without what the outcome's label says; may be empty.
std::string whyToday(const notify::UserRecord& user);

Tone outcomeTone(service::Outcome outcome);

}  // namespace console
