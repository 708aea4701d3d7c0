// A pass in figures, in the text format that Prometheus and its textfile collectors read.
#pragma once

#include <string>

#include "service/last_run.h"

namespace service {

// UTF-8, with HELP and TYPE of each metric. Times are seconds since 1970; a metric whose value is
// not known is left out.
std::string metricsText(const LastRun& run);

}  // namespace service
