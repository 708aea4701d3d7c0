// The few services of the system that a pass needs, handed to it by reference: the real ones,
// files, or fakes. Owns nothing.
#pragma once

#include "platform/account_database.h"
#include "platform/clock.h"
#include "platform/directory_access.h"
#include "platform/registry.h"

namespace platform {

struct Host {
  Registry& registry;
  AccountDatabase& accounts;
  DirectoryAccess& directory;
  Clock& clock;
};

}  // namespace platform
