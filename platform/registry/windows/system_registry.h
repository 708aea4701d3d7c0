// The operating system's registry. Used by the host of this system and by tests.
#pragma once

#include <memory>

#include "platform/registry/registry.h"

namespace platform {

std::unique_ptr<Registry> makeSystemRegistry();

}  // namespace platform
