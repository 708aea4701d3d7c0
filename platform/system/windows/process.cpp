#include "platform/system/process.h"

#include <windows.h>

#include "platform/text/code_page.h"
#include "platform/text/windows/wide_text.h"

// Of the C run-time library; the headers lack it. Does not expand wildcards when that flag is 0.
extern "C" int __wgetmainargs(  // NOLINT(bugprone-reserved-identifier)
    int* count, wchar_t*** arguments, wchar_t*** environment, int expandWildcards,
    int* newHandlerMode);

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
    std::string text(buffer == nullptr ? "" : buffer, buffer == nullptr ? 0 : size);
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
    std::string ansi = utf16ToAnsi(wide);
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

// main's own arguments were converted with similar characters in place of those that the code page
// lacks.
std::vector<std::string> commandLineArguments(int /*argc*/, char** /*argv*/) {
  int count = 0;
  wchar_t** wide = nullptr;
  wchar_t** environment = nullptr;
  int newHandlerMode = 0;
  std::vector<std::string> arguments;
  if (__wgetmainargs(&count, &wide, &environment, 0, &newHandlerMode) != 0) return arguments;
  for (int i = 1; i < count; ++i) arguments.push_back(utf16ToAnsi(fromWide(wide[i])));
  return arguments;
}

void hardenProcess() {
  SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  // Without this mode Windows Error Reporting writes a dump of a process that crashes.
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
}

}  // namespace platform
