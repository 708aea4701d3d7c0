#include "platform/system/file_rights.h"

#include <optional>
#include <vector>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/system/linux/disk_path.h"

namespace platform {
namespace {

std::optional<struct stat> statusOf(const std::string& name) {
  const std::optional<std::string> path = diskPath(name);
  struct stat status {};
  if (!path || ::stat(path->c_str(), &status) != 0) return std::nullopt;
  return status;
}

}  // namespace

std::string fileOwner(const std::string& name) {
  const std::optional<struct stat> status = statusOf(name);
  if (!status) return {};
  constexpr std::size_t kMostBytes = 16384;
  std::vector<char> buffer(kMostBytes);
  passwd entry{};
  passwd* found = nullptr;
  if (::getpwuid_r(status->st_uid, &entry, buffer.data(), buffer.size(), &found) != 0 ||
      found == nullptr) {
    return "user " + std::to_string(status->st_uid);
  }
  return found->pw_name;
}

bool mayWrite(const std::string& name) {
  const std::optional<std::string> path = diskPath(name);
  return path && ::euidaccess(path->c_str(), W_OK) == 0;
}

// The group's right is taken for the owner's, too: the service's user and group go together.
bool folderOwnerMayWrite(const std::string& folder, const std::string& name) {
  const std::optional<struct stat> above = statusOf(folder);
  const std::optional<struct stat> status = statusOf(name);
  if (!above || !status || above->st_uid == 0) return true;
  if (status->st_uid == above->st_uid) return (status->st_mode & S_IWUSR) != 0;
  const bool sameGroup = status->st_gid == above->st_gid;
  return (sameGroup && (status->st_mode & S_IWGRP) != 0) || (status->st_mode & S_IWOTH) != 0;
}

}  // namespace platform
