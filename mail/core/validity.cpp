#include "mail/core/validity.h"

#include <cstdlib>

namespace kelvado {

void stopOnDamage() {
  volatile char* volatile nowhere = nullptr;
  *nowhere = 0;
  std::abort();  // not reached where a null pointer faults
}

std::uint32_t nextSerial() {
  static volatile std::uint32_t counter = 0;
  const std::uint32_t serial = counter + 1;
  counter = serial;
  return serial;
}

}  // namespace kelvado
