// The worker thread by POSIX threads, the event by eventfd.
//
// A thread is frozen by a signal whose handler parks it until a second signal: wherever it is,
// inside a system call too, which then returns with EINTR or is begun again. Nothing but
// async-signal-safe calls happens there.
#include "platform/system/worker_thread.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <memory>
#include <utility>
#include <vector>

#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "platform/system/linux/last_error.h"

namespace platform {
namespace {

// Two of the real-time signals, which nothing else on the system sends.
int parkSignal() {
  return SIGRTMIN + 1;
}
int resumeSignal() {
  return SIGRTMIN + 2;
}

// A thread that does not park within this time is inside an uninterruptible system call, and parks
// when it comes out of it. The pause is not held up by it.
constexpr int kParkTimeoutSeconds = 1;

// One for each thread made. Kept when its handle is closed: a process has one worker, and freeing
// anything while it is frozen might wait for it.
struct Worker {
  explicit Worker(std::function<void()> threadBody) : body(std::move(threadBody)) {
    sem_init(&parked, 0, 0);
  }

  std::function<void()> body;
  pthread_t thread{};
  sem_t parked{};
  std::atomic<bool> suspended{false};
};

thread_local Worker* workerOfThread = nullptr;

// With every signal blocked, so that a resume that comes early waits for sigsuspend.
void park(int) {
  const int savedErrno = errno;
  sigset_t allButResume;
  sigfillset(&allButResume);
  sigdelset(&allButResume, resumeSignal());
  if (workerOfThread != nullptr) sem_post(&workerOfThread->parked);
  sigsuspend(&allButResume);
  errno = savedErrno;
}

void goOn(int) {}

void installHandlers() {
  struct sigaction action {};
  sigfillset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  action.sa_handler = park;
  sigaction(parkSignal(), &action, nullptr);
  action.sa_handler = goOn;
  sigaction(resumeSignal(), &action, nullptr);
}

sigset_t onlyPark() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, parkSignal());
  return signals;
}

// Begins with the park signal blocked: it must not arrive before the thread knows itself.
void* runWorker(void* argument) {
  workerOfThread = static_cast<Worker*>(argument);
  const sigset_t parkBlocked = onlyPark();
  pthread_sigmask(SIG_UNBLOCK, &parkBlocked, nullptr);
  workerOfThread->body();
  return nullptr;
}

Worker* workerOf(ThreadHandle handle) {
  if (handle == kNullHandle) setLastError(kErrorInvalidHandle);
  return reinterpret_cast<Worker*>(handle);
}

// Descriptors count from 0, handles from 1.
int descriptorOf(EventHandle event) {
  return static_cast<int>(event) - 1;
}

class PosixThreads final : public WorkerThreads {
 public:
  ThreadHandle createThread(std::function<void()> body) override {
    installHandlers();
    auto worker = std::make_unique<Worker>(std::move(body));
    const sigset_t parkBlocked = onlyPark();
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &parkBlocked, &before);
    const int error = pthread_create(&worker->thread, nullptr, runWorker, worker.get());
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (error != 0) {
      setLastError(winErrorOf(error));
      return kNullHandle;
    }
    workers_.push_back(std::move(worker));
    return reinterpret_cast<ThreadHandle>(workers_.back().get());
  }

  bool suspend(ThreadHandle thread) override {
    Worker* worker = workerOf(thread);
    if (worker == nullptr || worker->suspended.exchange(true)) return false;
    while (sem_trywait(&worker->parked) == 0) {  // of a time when it parked late
    }
    pthread_kill(worker->thread, parkSignal());
    timespec until{};
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += kParkTimeoutSeconds;
    while (sem_clockwait(&worker->parked, CLOCK_MONOTONIC, &until) != 0 && errno == EINTR) {
    }
    return true;
  }

  bool resume(ThreadHandle thread) override {
    Worker* worker = workerOf(thread);
    if (worker == nullptr || !worker->suspended.exchange(false)) return false;
    pthread_kill(worker->thread, resumeSignal());
    return true;
  }

  void closeThread(ThreadHandle thread) override {
    if (Worker* worker = workerOf(thread)) pthread_detach(worker->thread);
  }

  EventHandle createEvent() override {
    const int event = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (event < 0) setLastError(winErrorOf(errno));
    return static_cast<EventHandle>(event) + 1;
  }

  bool setEvent(EventHandle event) override {
    if (eventfd_write(descriptorOf(event), 1) == 0 || errno == EAGAIN) return true;
    setLastError(winErrorOf(errno));
    return false;
  }

  // Not read: the event stays set.
  void wait(EventHandle event) override {
    pollfd watched{descriptorOf(event), POLLIN, 0};
    while (poll(&watched, 1, -1) < 0 && errno == EINTR) {
    }
  }

  void closeEvent(EventHandle event) override { close(descriptorOf(event)); }

 private:
  std::vector<std::unique_ptr<Worker>> workers_;
};

}  // namespace

WorkerThreads& systemThreads() {
  static PosixThreads threads;
  return threads;
}

}  // namespace platform
