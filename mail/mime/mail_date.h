// The Date field's text (RFC 5322 section 3.3), always in English. Pure.
#pragma once

#include <string>

#include "base/timestamp.h"
#include "platform/system/clock.h"

namespace kelvado {

// "Sat, 05 Jan 2008 09:03:07 -0500". A month or day of the week out of range counts as the first.
std::string formatMailDate(const base::LocalTime& time, const platform::TimeZone& zone);

}  // namespace kelvado
