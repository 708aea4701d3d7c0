// What the stand-in DLLs share: the domain they answer from, and the record of every call.
// Both are files beside the DLLs: domain.ldif and calls.log. A third, fault.txt, may name one call
// that is to fail whenever it is made. Each DLL is one source file, which includes this once.
#pragma once

#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include <windows.h>

#include "base/unicode.h"
#include "platform/directory/ldif/ldif_source.h"
#include "platform/directory/snapshot_directory.h"
#include "platform/system/clock.h"
#include "platform/system/files.h"

#define EXPORTED extern "C" __declspec(dllexport)

namespace stand_in {

// The folder of the DLL that this code is in.
inline std::string folder() {
  HMODULE module = nullptr;
  GetModuleHandleExA(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      reinterpret_cast<LPCSTR>(&folder), &module);
  char path[MAX_PATH] = {};
  GetModuleFileNameA(module, path, sizeof path);
  const std::string_view file = path;
  return std::string(file.substr(0, file.rfind('\\') + 1));
}

// Read when it is first asked for. Ends the process when there is none.
inline platform::SnapshotDirectory& domain() {
  static platform::SnapshotDirectory directory(
      std::make_unique<platform::LdifSource>(folder() + "domain.ldif"), platform::systemClock());
  directory.readExpiryTimes(true);
  directory.readPersonalDetails(true);
  return directory;
}

inline std::u16string utf16(const wchar_t* text) {
  const std::wstring_view view(text);
  return std::u16string(view.begin(), view.end());
}

// A part of a line of the record; "null" for no wide text.
inline std::string shown(const std::string& text) {
  return text;
}
inline std::string shown(const wchar_t* text) {
  return text == nullptr ? "null" : base::utf16ToUtf8(utf16(text));
}
inline std::string shown(DWORD number) {
  return std::to_string(number);
}

// Adds a line.
template <class... Parts>
void record(const std::string& start, const Parts&... parts) {
  const std::string line = (start + ... + shown(parts)) + "\n";
  if (!platform::appendToFile(folder() + "calls.log", line)) std::abort();
}

// Adds a line for a call; false when it is the one that is to fail.
template <class... Parts>
bool begin(const std::string& call, const Parts&... parts) {
  record(call, parts...);
  std::string failing;
  return !platform::readWholeFile(folder() + "fault.txt", failing) || failing != call;
}

}  // namespace stand_in
