// Active Directory by ADSI over COM. Used by the host of this system.
#pragma once

#include <memory>

#include "platform/directory/directory_access.h"

namespace platform {

std::unique_ptr<DirectoryAccess> makeAdsiDirectory();

}  // namespace platform
