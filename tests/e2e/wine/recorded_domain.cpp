#include "tests/e2e/wine/recorded_domain.h"

#include <cstdlib>
#include <memory>
#include <string_view>

#include <windows.h>

#include "base/unicode.h"
#include "platform/directory/ldif/ldif_source.h"
#include "platform/system/clock.h"
#include "platform/system/files.h"

namespace stand_in {
namespace {

// The folder of the DLL that this code is in.
std::string folder() {
  HMODULE module = nullptr;
  GetModuleHandleExA(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      reinterpret_cast<LPCSTR>(&folder), &module);
  char path[MAX_PATH] = {};
  GetModuleFileNameA(module, path, sizeof path);
  const std::string_view file = path;
  return std::string(file.substr(0, file.rfind('\\') + 1));
}

}  // namespace

platform::SnapshotDirectory& domain() {
  static platform::SnapshotDirectory directory(
      std::make_unique<platform::LdifSource>(folder() + "domain.ldif"), platform::systemClock());
  return directory;
}

void record(const std::string& line) {
  if (!platform::appendToFile(folder() + "calls.log", line + "\n")) std::abort();
}

bool begin(const std::string& call, const std::string& details) {
  record(call + details);
  std::string failing;
  return !platform::readWholeFile(folder() + "fault.txt", failing) || failing != call;
}

std::string shown(const wchar_t* text) {
  return text == nullptr ? "null" : base::utf16ToUtf8(utf16(text));
}

std::u16string utf16(const wchar_t* text) {
  const std::wstring_view view(text);
  return std::u16string(view.begin(), view.end());
}

}  // namespace stand_in
