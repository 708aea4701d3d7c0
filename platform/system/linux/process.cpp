#include "platform/system/process.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <iterator>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include "platform/system/linux/last_error.h"

namespace platform {
namespace {

thread_local WinError lastErrorNumber = kErrorSuccess;

constexpr std::size_t kMaxImagePath = 512;

struct ErrorText {
  WinError error;
  const char* text;
};

// In the words of Windows, for the errors that the interfaces of a service give on this system.
constexpr ErrorText kErrorTexts[] = {
    {kErrorFileNotFound, "The system cannot find the file specified."},
    {kErrorAccessDenied, "Access is denied."},
    {kErrorInvalidHandle, "The handle is invalid."},
    {kErrorNotEnoughMemory, "Not enough storage is available to process this command."},
    {kErrorWriteFault, "The system cannot write to the specified device."},
    {kErrorInvalidName, "The filename, directory name, or volume label syntax is incorrect."},
    {kErrorInvalidServiceControl, "The requested control is not valid for this service."},
    {kErrorServiceRequestTimeout,
     "The service did not respond to the start or control request in a timely fashion."},
    {kErrorServiceDoesNotExist, "The specified service does not exist as an installed service."},
    {kErrorNoServiceManager, "The service process could not connect to the service controller."},
    {kErrorDatabaseDoesNotExist, "The database specified does not exist."},
    {kErrorServiceExists, "The specified service already exists."},
};

class PosixProcess final : public Process {
 public:
  WinError lastError() override { return lastErrorOfThread(); }

  std::string errorMessage(WinError error) override {
    const auto* row = std::find_if(std::begin(kErrorTexts), std::end(kErrorTexts),
                                   [error](const ErrorText& text) { return text.error == error; });
    return row != std::end(kErrorTexts) ? std::string(row->text) + "\r\n" : std::string();
  }

  std::string imagePath() override {
    char path[kMaxImagePath];
    const ssize_t size = readlink("/proc/self/exe", path, sizeof path);
    if (size < 0) setLastError(winErrorOf(errno));
    return size > 0 ? std::string(path, static_cast<std::size_t>(size)) : std::string();
  }

  // A parent sees the low eight bits of the code.
  void exit(std::uint32_t code) override { _exit(static_cast<int>(code)); }
  void terminate(std::uint32_t code) override { exit(code); }
};

}  // namespace

void setLastError(WinError error) {
  lastErrorNumber = error;
}

WinError lastErrorOfThread() {
  return lastErrorNumber;
}

WinError winErrorOf(int error) {
  switch (error) {
    case EACCES:
    case EPERM:
    case EROFS:
      return kErrorAccessDenied;
    case ENOENT:
    case ENOTDIR:
      return kErrorFileNotFound;
    case EBADF:
      return kErrorInvalidHandle;
    case ENOMEM:
    case EAGAIN:
    case EMFILE:
    case ENFILE:
      return kErrorNotEnoughMemory;
    default:
      return kErrorWriteFault;
  }
}

Process& systemProcess() {
  static PosixProcess process;
  return process;
}

std::vector<std::string> commandLineArguments(int argc, char** argv) {
  return {argv + (argc > 0 ? 1 : 0), argv + argc};
}

void hardenProcess() {
  // The limit alone does not bind a handler that the system pipes cores to.
  ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
  const rlimit none{0, 0};
  ::setrlimit(RLIMIT_CORE, &none);
}

}  // namespace platform
