#include <algorithm>
#include <filesystem>
#include <system_error>

#include "platform/system/files.h"
#include "platform/system/path_name.h"

namespace platform {

std::vector<std::string> namesInFolder(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code status;
  std::filesystem::directory_iterator entry(pathOf(folder), status);
  while (!status && entry != std::filesystem::directory_iterator()) {
    names.push_back(nameOf(entry->path().filename()));
    entry.increment(status);
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace platform
