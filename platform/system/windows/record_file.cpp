#include <cerrno>

#include <windows.h>

#include "platform/system/record_file_calls.h"

namespace platform {
namespace {

HANDLE fileOf(std::intptr_t handle) {
  return reinterpret_cast<HANDLE>(handle);
}

void setErrno() {
  const DWORD error = GetLastError();
  errno = error == ERROR_DISK_FULL || error == ERROR_HANDLE_DISK_FULL ? ENOSPC : EACCES;
}

}  // namespace

std::intptr_t openForRecords(const std::string& name) {
  const HANDLE file =
      CreateFileA(name.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                  FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  BY_HANDLE_FILE_INFORMATION information{};
  if (file == INVALID_HANDLE_VALUE) {
    setErrno();
    return kNoRecordFile;
  }
  if (GetFileInformationByHandle(file, &information) != 0 &&
      (information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
    return reinterpret_cast<std::intptr_t>(file);
  }
  CloseHandle(file);
  errno = EINVAL;
  return kNoRecordFile;
}

bool appendRecord(std::intptr_t handle, std::string_view bytes) {
  LARGE_INTEGER end{};
  if (SetFilePointerEx(fileOf(handle), LARGE_INTEGER{}, &end, FILE_END) == 0) {
    setErrno();
    return false;
  }
  DWORD written = 0;
  const BOOL done =
      WriteFile(fileOf(handle), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
  if (done != 0 && written == bytes.size()) return true;
  if (done == 0) {
    setErrno();
  } else {
    errno = ENOSPC;
  }
  // When this fails the half record stays; its reader drops it.
  if (written > 0 && SetFilePointerEx(fileOf(handle), end, nullptr, FILE_BEGIN) != 0) {
    SetEndOfFile(fileOf(handle));
  }
  return false;
}

bool flushRecords(std::intptr_t handle) {
  if (FlushFileBuffers(fileOf(handle)) != 0) return true;
  setErrno();
  return false;
}

void closeRecords(std::intptr_t handle) {
  CloseHandle(fileOf(handle));
}

}  // namespace platform
