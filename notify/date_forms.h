// Dates and times as people write them in a language. Pure functions; UTF-8.
#pragma once

#include <string>

#include "base/timestamp.h"

namespace notify {

// `language` is a tag in lower case; of one that is not known ("de-ch") the one it belongs to
// ("de") counts, and without any the form is that of ISO 8601: "2026-11-22", "15:45".
std::string dateText(const base::LocalTime& time,
                     const std::string& language);  // "22. November 2026"
std::string timeText(const base::LocalTime& time, const std::string& language);

}  // namespace notify
