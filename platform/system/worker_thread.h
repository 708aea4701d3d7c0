// The service's one worker thread and its stop event: started, frozen and thawed, set and waited
// for, by handles as the system has them. A call that fails sets the last error (process.h).
// May be used by several threads.
//
// suspend, resume and setEvent allocate nothing and wait for no lock that a frozen worker may hold:
// it may have been stopped anywhere.
#pragma once

#include <cstdint>
#include <functional>

namespace platform {

using ThreadHandle = std::uintptr_t;
using EventHandle = std::uintptr_t;
inline constexpr std::uintptr_t kNullHandle = 0;

class WorkerThreads {
 public:
  virtual ~WorkerThreads() = default;

  // A running thread with the default stack; kNullHandle on failure.
  virtual ThreadHandle createThread(std::function<void()> body) = 0;
  // Freezes the thread wherever it is, until resume. False when it is frozen already.
  virtual bool suspend(ThreadHandle thread) = 0;
  virtual bool resume(ThreadHandle thread) = 0;
  // The thread goes on; only its handle is gone.
  virtual void closeThread(ThreadHandle thread) = 0;

  // Manual reset, not signalled, unnamed; kNullHandle on failure.
  virtual EventHandle createEvent() = 0;
  // False for an event that does not exist.
  virtual bool setEvent(EventHandle event) = 0;
  // Until the event is set, for ever if need be.
  virtual void wait(EventHandle event) = 0;
  virtual void closeEvent(EventHandle event) = 0;
};

// Never destroyed.
WorkerThreads& systemThreads();

}  // namespace platform
