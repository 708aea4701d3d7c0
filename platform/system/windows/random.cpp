#include "platform/system/random.h"

#include <windows.h>
#include <ntsecapi.h>

namespace platform {

std::uint32_t random32() {
  std::uint32_t number = 0;
  while (RtlGenRandom(&number, sizeof number) == 0) {
  }
  return number;
}

}  // namespace platform
