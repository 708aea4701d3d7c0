#include "platform/system/linux/disk_path.h"

#include <algorithm>
#include <cerrno>
#include <memory>

#include <dirent.h>
#include <strings.h>
#include <sys/stat.h>

#include "base/ascii.h"

namespace platform {
namespace {

bool meansMissing(int error) {
  return error == ENOENT || error == ENOTDIR;
}

// The entry of `folder` that spells `wanted` in some letter case, or `wanted` itself. Among several
// the first by byte order, so that the answer does not depend on the order of the folder.
std::optional<std::string> findEntry(const std::string& folder, const std::string& wanted) {
  const std::unique_ptr<DIR, int (*)(DIR*)> open(::opendir(folder.empty() ? "." : folder.c_str()),
                                                 &::closedir);
  if (open == nullptr) return meansMissing(errno) ? std::optional(wanted) : std::nullopt;
  std::string found;
  for (;;) {
    errno = 0;
    const dirent* entry = ::readdir(open.get());
    if (entry == nullptr) break;
    if (::strcasecmp(entry->d_name, wanted.c_str()) != 0) continue;
    if (found.empty() || entry->d_name < found) found = entry->d_name;
  }
  if (errno != 0) return std::nullopt;
  return found.empty() ? wanted : found;
}

}  // namespace

bool isAbsolutePath(const std::string& name) {
  return !name.empty() && name[0] == '/';
}

std::string folderOfPath(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string lastPartOfPath(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

std::string lowerCasePath(const std::string& name) {
  std::string path = name;
  std::transform(path.begin(), path.end(), path.begin(),
                 [](char c) { return c == '\\' ? '/' : base::lowerAscii(c); });
  return path;
}

Presence presenceOf(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) == 0) return Presence::There;
  return meansMissing(errno) ? Presence::Missing : Presence::Unknown;
}

std::optional<std::string> diskPath(const std::string& name) {
  if (isAbsolutePath(name)) return name;
  const std::string lower = lowerCasePath(name);
  const Presence asItStands = presenceOf(lower);
  if (asItStands == Presence::There) return lower;
  if (asItStands == Presence::Unknown) return std::nullopt;
  std::string path;
  for (std::size_t begin = 0; begin < lower.size();) {
    const std::size_t end = std::min(lower.find('/', begin), lower.size());
    const std::string part = lower.substr(begin, end - begin);
    const Presence presence = presenceOf(path + part);
    if (presence == Presence::Unknown) return std::nullopt;
    const std::optional<std::string> entry =
        presence == Presence::There ? part : findEntry(path, part);
    if (!entry) return std::nullopt;
    path += *entry;
    if (end < lower.size()) path += '/';
    begin = end + 1;
  }
  return path;
}

}  // namespace platform
