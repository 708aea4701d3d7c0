#include "platform/system/process.h"

#include <windows.h>

namespace platform {
namespace {

constexpr DWORD kMaxImagePath = 512;

class WindowsProcess final : public Process {
 public:
  WinError lastError() override { return GetLastError(); }

  std::string errorMessage(WinError error) override {
    char* buffer = nullptr;
    const DWORD size = FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, error, 0, reinterpret_cast<char*>(&buffer), 0, nullptr);
    const std::string text(buffer == nullptr ? "" : buffer, buffer == nullptr ? 0 : size);
    if (buffer != nullptr) LocalFree(buffer);
    return text;
  }

  std::string imagePath() override {
    char path[kMaxImagePath];
    std::string name(path, GetModuleFileNameA(nullptr, path, kMaxImagePath));
    // Only a prefix of the system may have one; elsewhere it is a character that the code page
    // lacks, and the name nobody's.
    if (name.find('?', sizeof R"(\\?\)" - 1) == std::string::npos) return name;
    SetLastError(ERROR_INVALID_NAME);
    return {};
  }

  void exit(std::uint32_t code) override { ExitProcess(code); }
  void terminate(std::uint32_t code) override { TerminateProcess(GetCurrentProcess(), code); }
};

}  // namespace

Process& systemProcess() {
  static WindowsProcess process;
  return process;
}

void keepMemoryPrivate() {
  // Without this mode Windows Error Reporting writes a dump of a process that crashes.
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
}

}  // namespace platform
