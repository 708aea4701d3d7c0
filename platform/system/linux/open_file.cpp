#include "platform/system/linux/open_file.h"

#include <cerrno>
#include <climits>
#include <cstdint>

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/system/linux/disk_path.h"

namespace platform {
namespace {

constexpr int kMaxLinks = 40;  // as many as the system follows
constexpr int kAlways = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

bool isTrusted(const struct stat& status) {
  return status.st_uid == 0 || status.st_uid == ::geteuid();
}

// Where the link leads. Looks at owner and target of one and the same link, whatever takes its
// place meanwhile. Empty, with errno set, when it is not to be followed; `notALink` is the errno
// for what is no link.
std::string trustedTarget(const std::string& path, int notALink) {
  const Descriptor link(::open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!link.valid() || ::fstat(link.get(), &status) != 0) return {};
  if (!S_ISLNK(status.st_mode) || !isTrusted(status)) {
    errno = S_ISLNK(status.st_mode) ? ELOOP : notALink;
    return {};
  }
  char target[PATH_MAX];
  const ssize_t size = ::readlinkat(link.get(), "", target, sizeof target);
  if (size <= 0) return {};
  const std::string text(target, static_cast<std::size_t>(size));
  return isAbsolutePath(text) ? text : folderOfPath(path) + '/' + text;
}

int openThroughTrustedLinks(std::string path, int flags) {
  for (int links = 0; links <= kMaxLinks; ++links) {
    const int file = ::open(path.c_str(), flags | kAlways);
    if (file != -1) return file;
    if (errno == ENOENT && links > 0) break;  // the link is there: its file is not just missing
    if (errno != ELOOP && errno != ENOTDIR) return -1;
    path = trustedTarget(path, errno);
    if (path.empty()) return -1;
  }
  errno = ELOOP;
  return -1;
}

// Gives the descriptor back if it is a regular file's, else -1.
int regularOnly(int number) {
  Descriptor file(number);
  if (!file.valid()) {
    if (errno == ENXIO) errno = ENOTSUP;  // a pipe that nobody reads, a socket
    return -1;
  }
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) return -1;
  if (S_ISREG(status.st_mode)) return file.release();
  errno = S_ISDIR(status.st_mode) ? EISDIR : ENOTSUP;
  return -1;
}

// The usual case in one call: no link anywhere in the path. Older systems do not have it.
int openWithoutLinks(const std::string& path, int flags) {
  open_how how{};
  how.flags = static_cast<std::uint64_t>(flags);
  how.resolve = RESOLVE_NO_SYMLINKS;
  return static_cast<int>(::syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof how));
}

// Opens the last part of the path in its folder, and makes it if asked to.
int openInFolder(int folder, const std::string& path, int flags, bool make, mode_t mode) {
  const std::string name = lastPartOfPath(path);
  const auto open = [&](int more) { return ::openat(folder, name.c_str(), flags | more, mode); };
  int file = open(0);
  if (file == -1 && errno == ENOENT && make) {
    file = open(O_CREAT | O_EXCL);
    if (file != -1) giveToOwnerOf(file, folderOfPath(path));
    if (file == -1 && errno == EEXIST) file = open(0);  // another program has made it just now
  }
  return file;
}

}  // namespace

int Descriptor::release() {
  const int number = number_;
  number_ = -1;
  return number;
}

bool Descriptor::close() {
  return !valid() || ::close(release()) == 0;
}

int openToRead(const std::string& path) {
  return regularOnly(openThroughTrustedLinks(path, O_RDONLY));
}

int openToWrite(const std::string& path, int flags, mode_t mode) {
  const int plain = (flags & ~(O_CREAT | O_TRUNC)) | kAlways;
  const bool make = (flags & O_CREAT) != 0;
  const bool inSubfolder = !isAbsolutePath(path) && path.find('/') != std::string::npos;
  int file = inSubfolder ? openWithoutLinks(path, plain) : ::open(path.c_str(), plain);
  if (file == -1 && (errno == ENOENT ? make : inSubfolder)) {
    const int howToFolder = O_PATH | O_DIRECTORY | O_CLOEXEC;
    const std::string folder = folderOfPath(path);
    const Descriptor at(inSubfolder ? openThroughTrustedLinks(folder, howToFolder)
                                    : ::open(folder.c_str(), howToFolder));
    file = at.valid() ? openInFolder(at.get(), path, plain, make, mode) : -1;
  }
  Descriptor result(regularOnly(file));
  if (result.valid() && (flags & O_TRUNC) != 0 && ::ftruncate(result.get(), 0) != 0) return -1;
  return result.release();
}

bool isForeignLink(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode) && !isTrusted(status);
}

void giveToOwnerOf(int file, const std::string& like) {
  struct stat status {};
  if (::geteuid() != 0 || ::stat(like.c_str(), &status) != 0) return;
  if (::fchown(file, status.st_uid, status.st_gid) != 0) return;  // then it is root's
}

}  // namespace platform
