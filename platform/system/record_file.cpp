// When to flush; the system's calls are in record_file_calls.h.
#include "platform/system/record_file.h"

#include "platform/system/record_file_calls.h"

namespace platform {
namespace {

// How long a record may wait for the disk. Half of what is promised: the flush takes time, too.
constexpr std::chrono::milliseconds kFlushDelay{500};

}  // namespace

std::unique_ptr<RecordFile> RecordFile::open(const std::string& name) {
  const std::intptr_t handle = openForRecords(name);
  return handle == kNoRecordFile ? nullptr : std::unique_ptr<RecordFile>(new RecordFile(handle));
}

RecordFile::RecordFile(std::intptr_t handle)
    : handle_(handle), flusher_([this] { flushInBackground(); }) {}

RecordFile::~RecordFile() {
  {
    const std::lock_guard lock(mutex_);
    closing_ = true;
  }
  changed_.notify_one();
  flusher_.join();
  flushRecords(handle_);
  closeRecords(handle_);
}

bool RecordFile::append(std::string_view bytes) {
  if (!appendRecord(handle_, bytes)) return false;
  {
    const std::lock_guard lock(mutex_);
    if (dirty_) return true;
    dirty_ = true;
  }
  changed_.notify_one();
  return true;
}

void RecordFile::flushInBackground() {
  std::unique_lock lock(mutex_);
  while (!closing_) {
    changed_.wait(lock, [this] { return dirty_ || closing_; });
    changed_.wait_for(lock, kFlushDelay, [this] { return closing_; });
    if (!dirty_ || closing_) continue;
    dirty_ = false;
    lock.unlock();
    // A failure shows again when the whole file is replaced, which reports it.
    flushRecords(handle_);
    lock.lock();
  }
}

}  // namespace platform
