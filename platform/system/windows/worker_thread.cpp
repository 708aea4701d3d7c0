#include "platform/system/worker_thread.h"

#include <memory>
#include <utility>

#include <windows.h>
#include <malloc.h>

namespace platform {
namespace {

HANDLE handleOf(std::uintptr_t handle) {
  return reinterpret_cast<HANDLE>(handle);
}

DWORD WINAPI runBody(void* argument) {
  const std::unique_ptr<std::function<void()>> body(static_cast<std::function<void()>*>(argument));
  (*body)();
  return 0;
}

class HeapLocked {
 public:
  explicit HeapLocked(HANDLE heap) : heap_(heap), locked_(HeapLock(heap) != FALSE) {}
  ~HeapLocked() {
    if (locked_) HeapUnlock(heap_);
  }
  HeapLocked(const HeapLocked&) = delete;
  HeapLocked& operator=(const HeapLocked&) = delete;

 private:
  HANDLE heap_;
  bool locked_;
};

constexpr DWORD kSuspendFailed = static_cast<DWORD>(-1);

class WindowsThreads final : public WorkerThreads {
 public:
  ThreadHandle createThread(std::function<void()> body) override {
    auto owned = std::make_unique<std::function<void()>>(std::move(body));
    const HANDLE thread = CreateThread(nullptr, 0, runBody, owned.get(), 0, nullptr);
    if (thread != nullptr) static_cast<void>(owned.release());  // the thread's from here on
    return reinterpret_cast<ThreadHandle>(thread);
  }

  // The system counts suspensions; one is all that anybody needs. With the locks of the heaps in
  // hand, so that the thread does not stop with one: a report to the service manager allocates.
  bool suspend(ThreadHandle thread) override {
    const HeapLocked ours(handleOf(_get_heap_handle()));
    const HeapLocked systems(GetProcessHeap());
    const DWORD before = SuspendThread(handleOf(thread));
    // Suspending only asks; its registers can be read when it has stopped.
    CONTEXT registers{};
    registers.ContextFlags = CONTEXT_CONTROL;
    GetThreadContext(handleOf(thread), &registers);
    if (before == kSuspendFailed) return false;
    if (before > 0) ResumeThread(handleOf(thread));
    return before == 0;
  }

  bool resume(ThreadHandle thread) override {
    const DWORD before = ResumeThread(handleOf(thread));
    return before != kSuspendFailed && before > 0;
  }

  void closeThread(ThreadHandle thread) override { CloseHandle(handleOf(thread)); }

  EventHandle createEvent() override {
    return reinterpret_cast<EventHandle>(CreateEventA(nullptr, TRUE, FALSE, nullptr));
  }
  bool setEvent(EventHandle event) override { return SetEvent(handleOf(event)) != FALSE; }
  void wait(EventHandle event) override { WaitForSingleObject(handleOf(event), INFINITE); }
  void closeEvent(EventHandle event) override { CloseHandle(handleOf(event)); }
};

}  // namespace

WorkerThreads& systemThreads() {
  static WindowsThreads threads;
  return threads;
}

}  // namespace platform
