#include "platform/system/file_rights.h"

#include <windows.h>

#include "platform/text/code_page.h"
#include "platform/text/windows/wide_text.h"

namespace platform {

// Rights are those of lists, of which the owner is one entry among others.
std::string fileOwner(const std::string&) {
  return {};
}

// Asks for the right by opening, which changes nothing.
bool mayWrite(const std::string& name) {
  const std::wstring path = toWide(ansiToUtf16(name));
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return false;
  const bool isFolder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  const HANDLE file =
      CreateFileW(path.c_str(), isFolder ? FILE_ADD_FILE : FILE_APPEND_DATA,
                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                  isFolder ? FILE_FLAG_BACKUP_SEMANTICS : FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  CloseHandle(file);
  return true;
}

bool folderOwnerMayWrite(const std::string&, const std::string&) {
  return true;
}

}  // namespace platform
