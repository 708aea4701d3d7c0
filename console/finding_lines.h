// A pass's problems and notes as a command answers them.
#pragma once

#include <string>

#include "config/findings.h"
#include "console/table.h"

namespace console {

// Lines "FAILED: ..." and "note: ..." for people; how many more there were behind them.
std::string findingsText(const config::FindingLines& problems, const config::FindingLines& notes,
                         const TextStyle& style);
// {"count": N, "texts": [...]}
JsonValue findingsJson(const config::FindingLines& found);

}  // namespace console
