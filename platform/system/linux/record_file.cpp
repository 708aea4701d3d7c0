#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/system/files.h"
#include "platform/system/record_file_calls.h"

namespace platform {
namespace {

constexpr mode_t kOwnerOnly = 0600;

int descriptorOf(std::intptr_t handle) {
  return static_cast<int>(handle);
}

}  // namespace

std::intptr_t openForRecords(const std::string& name) {
  const int file =
      ::open(absolutePath(name).c_str(),
             O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kOwnerOnly);
  if (file == -1) return kNoRecordFile;
  struct stat status {};
  if (::fstat(file, &status) == 0 && S_ISREG(status.st_mode)) return file;
  ::close(file);
  errno = EINVAL;
  return kNoRecordFile;
}

bool appendRecord(std::intptr_t handle, std::string_view bytes) {
  const int file = descriptorOf(handle);
  const off_t end = ::lseek(file, 0, SEEK_END);
  if (end == -1) return false;
  const ssize_t written = ::write(file, bytes.data(), bytes.size());
  if (written == static_cast<ssize_t>(bytes.size())) return true;
  const int reason = written < 0 ? errno : ENOSPC;
  if (written > 0 && ::ftruncate(file, end) != 0) {
    // The half record stays; its reader drops it.
  }
  errno = reason;
  return false;
}

bool flushRecords(std::intptr_t handle) {
  return ::fdatasync(descriptorOf(handle)) == 0;
}

void closeRecords(std::intptr_t handle) {
  ::close(descriptorOf(handle));
}

}  // namespace platform
