#include <atomic>
#include <memory>

#include <gtest/gtest.h>

#include "platform/system/worker_thread.h"

namespace platform {
namespace {

// Whoever froze it must be able to allocate: reports to the service manager do.
TEST(WindowsThreads, AFrozenThreadHoldsNoHeapLock) {
  std::atomic<bool> ends = false;
  std::atomic<int> rounds = 0;
  const EventHandle ended = systemThreads().createEvent();
  const ThreadHandle worker = systemThreads().createThread([&] {
    for (; !ends; ++rounds) std::make_unique<char[]>(100 + rounds % 1000);
    systemThreads().setEvent(ended);
  });
  for (int i = 0; i < 300; ++i) {
    const int before = rounds;
    ASSERT_TRUE(systemThreads().suspend(worker));
    for (int size = 1; size < 100; ++size) std::make_unique<char[]>(size);
    ASSERT_TRUE(systemThreads().resume(worker));
    while (rounds == before) {
    }
  }
  ends = true;
  systemThreads().wait(ended);
  systemThreads().closeEvent(ended);
  systemThreads().closeThread(worker);
}

}  // namespace
}  // namespace platform
