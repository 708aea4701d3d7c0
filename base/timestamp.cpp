#include "base/timestamp.h"

#include "base/format_text.h"

namespace base {

std::string timestampText(const LocalTime& time) {
  return formatText("%2u/%02u/%04u %2u:%02u:%02u", static_cast<unsigned>(time.month),
                    static_cast<unsigned>(time.day), static_cast<unsigned>(time.year),
                    static_cast<unsigned>(time.hour), static_cast<unsigned>(time.minute),
                    static_cast<unsigned>(time.second));
}

}  // namespace base
