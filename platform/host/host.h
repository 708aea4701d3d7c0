// The few services of the system that a pass needs, handed to it by reference: the real ones,
// files, or fakes. Owns nothing.
#pragma once

#include "platform/directory/account_database.h"
#include "platform/directory/directory_access.h"
#include "platform/registry/registry.h"
#include "platform/system/clock.h"

namespace platform {

struct Host {
  Registry& registry;
  AccountDatabase& accounts;
  DirectoryAccess& directory;
  Clock& clock;
};

}  // namespace platform
