// The accounts of the machine or its domain by the network management functions.
// Used by the host of this system.
#pragma once

#include <memory>

#include "platform/directory/account_database.h"

namespace platform {

std::unique_ptr<AccountDatabase> makeSystemAccounts();

}  // namespace platform
