// The values that the service reads when it starts: whether debug lines are written, how long it
// sleeps between passes, and where its files are. Used by the service and by the console, which
// runs on the same values.
#pragma once

#include <cstdint>
#include <string>

#include "platform/registry/registry.h"

namespace service {

struct ServiceValues {
  bool debug = true;                   // until the registry has been read
  std::uint32_t intervalMs = 7200000;  // the same: 2 hours
  std::string workFolder{};            // empty: the current directory it is
};

// Debug is on when either edition's key says so; no interval, or 0, means 24 hours.
ServiceValues readServiceValues(platform::Registry& registry);

// That many units in milliseconds; as many as a sleep takes, when they are more.
std::uint32_t asMs(std::uint32_t count, std::uint32_t unitMs);

}  // namespace service
