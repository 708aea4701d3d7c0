#include "platform/directory/adsi/error_words.h"

#include <memory>
#include <type_traits>

#include <windows.h>
#include <lmerr.h>

#include "base/format_text.h"
#include "platform/text/code_page.h"
#include "platform/text/windows/wide_text.h"

namespace platform {
namespace {

constexpr std::uint32_t kFirstAdsiError = 0x80005000;
constexpr std::uint32_t kLastAdsiError = 0x80005FFF;

// The file with the messages of a range of numbers; null: the system's own table.
const wchar_t* messageFile(std::uint32_t status) {
  if (status >= NERR_BASE && status <= MAX_NERR) return L"netmsg.dll";
  if (status >= kFirstAdsiError && status <= kLastAdsiError) return L"adsmsext.dll";
  return nullptr;
}

struct LibraryFree {
  void operator()(HMODULE module) const { FreeLibrary(module); }
};
using Library = std::unique_ptr<std::remove_pointer_t<HMODULE>, LibraryFree>;

std::string systemWords(std::uint32_t status) {
  Library library;
  DWORD flags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS |
                FORMAT_MESSAGE_MAX_WIDTH_MASK |  // one line
                FORMAT_MESSAGE_FROM_SYSTEM;
  if (const wchar_t* file = messageFile(status); file != nullptr) {
    library.reset(
        LoadLibraryExW(file, nullptr, LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_SEARCH_SYSTEM32));
    if (library == nullptr) return {};
    flags |= FORMAT_MESSAGE_FROM_HMODULE;
  }
  wchar_t* buffer = nullptr;
  FormatMessageW(flags, library.get(), status, 0, reinterpret_cast<wchar_t*>(&buffer), 0, nullptr);
  const std::string words = utf16ToAnsi(fromWide(buffer));
  LocalFree(buffer);
  return words.substr(0, words.find_last_not_of(". ") + 1);
}

}  // namespace

std::string errorWords(std::uint32_t status) {
  const bool isHresult = (status & 0x80000000U) != 0;
  const std::string number = base::formatText(isHresult ? "0x%08x" : "error %u", status);
  const std::string words = systemWords(status);
  return words.empty() ? number : words + " (" + number + ")";
}

}  // namespace platform
