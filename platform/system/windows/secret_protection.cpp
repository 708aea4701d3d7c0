// Secrets by DPAPI with the key of the machine: the program of an administrator writes what the
// service reads, under another account.
#include "platform/system/secret_protection.h"

#include <windows.h>
#include <wincrypt.h>

#include "platform/system/process.h"
#include "platform/system/windows/access_list.h"

namespace platform {
namespace {

std::string textOf(WinError error) {
  std::string text = systemProcess().errorMessage(error);
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  return text + " (error " + std::to_string(error) + ")";
}

DATA_BLOB blobOf(std::string_view bytes) {
  // The calls do not write to what comes in.
  auto* data = reinterpret_cast<BYTE*>(const_cast<char*>(bytes.data()));
  return {static_cast<DWORD>(bytes.size()), data};
}

// Takes what a call has put out and wipes it.
bool take(BOOL done, DATA_BLOB& out, std::string& bytes, std::string& error) {
  if (done == FALSE) {
    error = textOf(GetLastError());
    return false;
  }
  bytes.assign(reinterpret_cast<const char*>(out.pbData), out.cbData);
  SecureZeroMemory(out.pbData, out.cbData);
  LocalFree(out.pbData);
  return true;
}

constexpr DWORD kFlags = CRYPTPROTECT_LOCAL_MACHINE | CRYPTPROTECT_UI_FORBIDDEN;

}  // namespace

bool protectsSecrets() {
  return true;
}

bool protectBytes(std::string_view secret, std::string& bytes, std::string& error) {
  DATA_BLOB in = blobOf(secret);
  DATA_BLOB out{};
  const BOOL done = CryptProtectData(&in, L"pwlapse", nullptr, nullptr, nullptr, kFlags, &out);
  return take(done, out, bytes, error);
}

bool unprotectBytes(std::string_view bytes, std::string& secret, std::string& error) {
  DATA_BLOB in = blobOf(bytes);
  DATA_BLOB out{};
  const BOOL done =
      CryptUnprotectData(&in, nullptr, nullptr, nullptr, nullptr, CRYPTPROTECT_UI_FORBIDDEN, &out);
  return take(done, out, secret, error);
}

bool restrictFile(const std::string& file, const std::string& service, std::string& error) {
  const WinError status =
      setAccess(file, SE_FILE_OBJECT, L"D:(A;;FA;;;SY)(A;;FA;;;BA)(A;;FR;;;%SERVICE%)", service);
  if (status != kErrorSuccess) error = textOf(status);
  return status == kErrorSuccess;
}

}  // namespace platform
