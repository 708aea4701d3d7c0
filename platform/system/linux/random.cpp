#include "platform/system/random.h"

#include <array>
#include <cstddef>

#include <sys/random.h>

namespace platform {
namespace {

// Numbers in stock: the identifiers of a mail take four, and a system call each would show. At most
// 256 bytes come whole or, when a signal arrives before the source is seeded, not at all.
constexpr std::size_t kStock = 16;

}  // namespace

// A process that is forked off without exec would draw the same numbers as its parent.
std::uint32_t random32() {
  thread_local std::array<std::uint32_t, kStock> stock{};
  thread_local std::size_t left = 0;
  if (left == 0) {
    while (getrandom(stock.data(), sizeof stock, 0) != sizeof stock) {
    }
    left = kStock;
  }
  const std::uint32_t number = stock[--left];
  stock[left] = 0;
  return number;
}

}  // namespace platform
