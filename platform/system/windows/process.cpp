#include "platform/system/process.h"

#include <windows.h>

#include "platform/text/code_page.h"

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
    wchar_t path[kMaxImagePath];
    const DWORD length = GetModuleFileNameW(nullptr, path, kMaxImagePath);
    if (length == 0 || length == kMaxImagePath) return {};  // failed, or cut off
    // Not GetModuleFileNameA: it writes a similar letter where the code page lacks one, which is
    // another path.
    const std::u16string wide(path, path + length);
    const std::string ansi = utf16ToAnsi(wide);
    if (ansiToUtf16(ansi) == wide && ansi.size() < kMaxImagePath) return ansi;
    SetLastError(ERROR_NO_UNICODE_TRANSLATION);
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

void hardenProcess() {
  SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  // Without this mode Windows Error Reporting writes a dump of a process that crashes.
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
}

}  // namespace platform
