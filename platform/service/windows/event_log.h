// The system's event log, "Application".
#pragma once

#include <string>

#include "platform/service/event.h"
#include "platform/system/win_error.h"

namespace platform {

// As ServiceControl and ServiceSetup have them.
void enterEvent(Event event, const std::string& text);
WinError addEventSourceKey(const std::string& name, const std::string& imagePath);
WinError removeEventSourceKey(const std::string& name);

}  // namespace platform
