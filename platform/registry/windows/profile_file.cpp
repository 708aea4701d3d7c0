// The look-ups of profile_file.h by the profile functions of Windows themselves.
#include "platform/registry/profile_file.h"

#include <vector>

#include <windows.h>

namespace platform {
namespace {

// A bare name would mean the Windows directory, not the current one.
std::string profilePath(const std::string& file) {
  return file.find_first_of("\\/:") == std::string::npos ? ".\\" + file : file;
}

}  // namespace

std::string profileString(const std::string& file, const std::string& section,
                          const std::string& key, const std::string& fallback,
                          std::size_t capacity) {
  std::vector<char> buffer(capacity + 1);
  const DWORD length =
      GetPrivateProfileStringA(section.c_str(), key.c_str(), fallback.c_str(), buffer.data(),
                               static_cast<DWORD>(capacity), profilePath(file).c_str());
  return std::string(buffer.data(), length);
}

std::uint32_t profileInt(const std::string& file, const std::string& section,
                         const std::string& key, std::int32_t fallback) {
  return GetPrivateProfileIntA(section.c_str(), key.c_str(), fallback, profilePath(file).c_str());
}

}  // namespace platform
