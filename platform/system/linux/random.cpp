#include "platform/system/random.h"

#include <sys/random.h>

namespace platform {

std::uint32_t random32() {
  std::uint32_t number = 0;
  // Four bytes come whole or, when a signal arrives before the source is seeded, not at all.
  while (getrandom(&number, sizeof number, 0) != sizeof number) {
  }
  return number;
}

}  // namespace platform
