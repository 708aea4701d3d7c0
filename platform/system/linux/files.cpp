// Files by the system's own relative names, over the system calls of POSIX.
#include "platform/system/files.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/system/file_steps.h"
#include "platform/system/linux/disk_path.h"
#include "platform/system/linux/open_file.h"
#include "platform/system/path_name.h"

namespace platform {
namespace {

constexpr mode_t kOwnerOnly = 0600;
constexpr mode_t kAllRead = 0644;
constexpr mode_t kFileMode = 0666;       // less the process's umask
constexpr mode_t kDirectoryMode = 0777;  // likewise

// By default a write beyond the process's file size limit ends the process; here it is to fail like
// any other write.
void ignoreFileSizeSignal() {
  static std::once_flag once;
  std::call_once(once, [] {
    struct sigaction current {};
    if (::sigaction(SIGXFSZ, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) {
      std::signal(SIGXFSZ, SIG_IGN);
    }
  });
}

// A system call, tried again when a signal interrupted it.
template <typename Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

bool writeAll(int file, std::string_view bytes) {
  ignoreFileSizeSignal();
  const auto write = [file](const char* data, std::size_t size) {
    return uninterrupted([=] { return ::write(file, data, size); });
  };
  return writeToEnd(write, bytes);
}

// -1, with errno set, on failure. A file in its usual spelling takes no look-up.
int openNamed(const std::string& name, int flags) {
  if (!isAbsolutePath(name)) {
    const int file = openToWrite(lowerCasePath(name), flags & ~O_CREAT, kFileMode);
    if (file != -1 || errno != ENOENT) return file;
  }
  const std::optional<std::string> path = diskPath(name);
  return path ? openToWrite(*path, flags, kFileMode) : -1;
}

int openToReadNamed(const std::string& name) {
  const std::optional<std::string> path = diskPath(name);
  return path ? openToRead(*path) : -1;
}

bool openAndWrite(const std::string& name, int flags, std::string_view bytes) {
  Descriptor file(openNamed(name, O_WRONLY | O_CREAT | flags));
  return file.valid() && writeAll(file.get(), bytes) && file.close();
}

// The file behind a chain of symbolic links, so that replacing it leaves the links in place.
std::string linkTarget(const std::string& path) {
  if (isForeignLink(path)) return path;
  const std::unique_ptr<char, void (*)(void*)> target(::realpath(path.c_str(), nullptr),
                                                      &std::free);
  return target != nullptr ? std::string(target.get()) : path;
}

bool isDirectory(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// The open(2) flags of a mode of fopen.
int flagsOf(std::string_view mode) {
  const int access = mode.find('+') != std::string_view::npos ? O_RDWR : O_WRONLY;
  if (mode.starts_with('w')) return access | O_CREAT | O_TRUNC;
  if (mode.starts_with('a')) return access | O_CREAT | O_APPEND;
  return access == O_RDWR ? O_RDWR : O_RDONLY;
}

// The temporaries of replaceFileAtomically: the file's name, a dot, six letters and digits, this.
constexpr std::string_view kTemporaryEnd = ".pwlapse-tmp";
constexpr std::size_t kTemporaryLetters = 6;

std::vector<std::string> temporariesOf(const std::string& path) {
  const std::string folder = folderOfPath(path);
  const std::string start = lastPartOfPath(path) + '.';
  const std::unique_ptr<DIR, int (*)(DIR*)> open(::opendir(folder.c_str()), &::closedir);
  std::vector<std::string> found;
  while (open != nullptr) {
    const dirent* entry = ::readdir(open.get());
    if (entry == nullptr) break;
    const std::string_view name = entry->d_name;
    if (name.size() == start.size() + kTemporaryLetters + kTemporaryEnd.size() &&
        name.starts_with(start) && name.ends_with(kTemporaryEnd)) {
      found.push_back(folder + '/' + std::string(name));
    }
  }
  return found;
}

// The owner, group and mode of the file that `file` is to replace at `path`; for a new file the
// owner of the folder.
bool takeOverRights(int file, const std::string& path, FileReaders readers) {
  struct stat old {};
  if (::lstat(path.c_str(), &old) != 0 || !S_ISREG(old.st_mode)) {
    giveToOwnerOf(file, folderOfPath(path));
    return ::fchmod(file, readers == FileReaders::Everybody ? kAllRead : kOwnerOnly) == 0;
  }
  giveToOwnerOf(file, path);
  // Who is not root can hand it to a group of his own only; to another one it then stays shut.
  struct stat now {};
  const bool sameGroup = ::fchown(file, static_cast<uid_t>(-1), old.st_gid) == 0 ||
                         (::fstat(file, &now) == 0 && now.st_gid == old.st_gid);
  mode_t kept = sameGroup ? S_IRWXU | S_IRWXG : S_IRWXU;
  if (readers != FileReaders::OwnerAndGroup) kept |= S_IRWXO;
  return ::fchmod(file, old.st_mode & kept) == 0;
}

}  // namespace

File openFile(const std::string& name, const char* mode) {
  ignoreFileSizeSignal();
  const int flags = flagsOf(mode);
  Descriptor opened(flags == O_RDONLY ? openToReadNamed(name) : openNamed(name, flags));
  File file(opened.valid() ? ::fdopen(opened.get(), mode) : nullptr);
  if (file) opened.release();
  return file;
}

bool readTextLine(std::FILE* file, std::size_t capacity, std::string& line) {
  return readTextLineBy([](std::FILE* from) { return getc_unlocked(from); }, file, capacity, line);
}

bool readWholeFile(const std::string& name, std::string& bytes, std::size_t limit) {
  bytes.clear();
  const Descriptor file(openToReadNamed(name));
  struct stat status {};
  if (!file.valid() || ::fstat(file.get(), &status) != 0) return false;
  bytes.reserve(std::min(static_cast<std::size_t>(status.st_size), limit));
  const auto read = [&file](char* data, std::size_t size) {
    return uninterrupted([&] { return ::read(file.get(), data, size); });
  };
  return readToEnd(read, limit, bytes);
}

bool writeWholeFile(const std::string& name, std::string_view bytes) {
  return openAndWrite(name, O_TRUNC, bytes);
}

bool writeTextFile(const std::string& name, std::string_view text) {
  return writeWholeFile(name, text);
}

bool replaceFileAtomically(const std::string& name, std::string_view bytes, FileReaders readers) {
  // A new file gets its usual rights by being made as any other, empty.
  if (readers == FileReaders::AsUsual && !openAndWrite(name, O_APPEND, {})) return false;
  const std::optional<std::string> found = diskPath(name);
  if (!found) return false;
  const std::string path = linkTarget(*found);
  std::string temporary = path + '.' + std::string(kTemporaryLetters, 'X');
  temporary += kTemporaryEnd;
  Descriptor file(::mkostemps(temporary.data(), static_cast<int>(kTemporaryEnd.size()), O_CLOEXEC));
  if (!file.valid()) return false;
  const bool stored = takeOverRights(file.get(), path, readers) && writeAll(file.get(), bytes) &&
                      ::fsync(file.get()) == 0 && file.close() &&
                      std::rename(temporary.c_str(), path.c_str()) == 0;
  if (!stored) {
    const int reason = errno;
    ::unlink(temporary.c_str());
    errno = reason;
    return false;
  }
  // The new file is in place whatever becomes of this; it only makes the name survive a power cut.
  const Descriptor folder(::open(folderOfPath(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder.valid()) ::fsync(folder.get());
  return true;
}

void removeTemporaries(const std::string& name) {
  const std::optional<std::string> found = diskPath(name);
  if (!found) return;
  const std::string path = linkTarget(*found);
  const std::vector<std::string> left = temporariesOf(path);
  if (left.empty()) return;
  const FileLock lock(path, FileLock::Wait::No);
  if (!lock.held()) return;
  for (const std::string& temporary : left) ::unlink(temporary.c_str());
}

bool appendToFile(const std::string& name, std::string_view text) {
  return openAndWrite(name, O_APPEND, text);
}

bool overwriteInFile(const std::string& name, std::uint64_t offset, std::string_view bytes) {
  ignoreFileSizeSignal();
  const std::optional<std::string> path = diskPath(name);
  Descriptor file(path ? openToWrite(linkTarget(*path), O_WRONLY, kFileMode) : -1);
  if (!file.valid()) return false;
  const ssize_t written = uninterrupted(
      [&] { return ::pwrite(file.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset)); });
  return written == static_cast<ssize_t>(bytes.size()) && ::fdatasync(file.get()) == 0 &&
         file.close();
}

bool createDirectory(const std::string& name) {
  const std::optional<std::string> path = diskPath(name);
  if (!path) return false;
  const bool made = ::mkdir(path->c_str(), kDirectoryMode) == 0;
  if (!made && errno != EEXIST) return false;
  if (!made) return isDirectory(*path);
  const Descriptor folder(::open(path->c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (folder.valid()) giveToOwnerOf(folder.get(), folderOfPath(*path));
  return true;
}

bool folderIsShared(const std::string& folder) {
  struct stat status {};
  if (::stat(folder.c_str(), &status) != 0) return false;
  const uid_t self = ::geteuid();
  const bool ownersOnly = status.st_uid == self || status.st_uid == 0 || self == 0;
  const bool byGroup = (status.st_mode & S_IWGRP) != 0 && status.st_gid != ::getegid();
  return !ownersOnly || byGroup || (status.st_mode & S_IWOTH) != 0;
}

bool fileIsShared(const std::string& name) {
  const std::optional<std::string> path = diskPath(name);
  struct stat status {};
  if (!path || ::stat(path->c_str(), &status) != 0) return false;
  const bool byGroup = (status.st_mode & S_IRGRP) != 0 && status.st_gid != ::getegid();
  return (byGroup && ::geteuid() != 0) || (status.st_mode & S_IROTH) != 0;
}

bool fileExists(const std::string& name) {
  const std::optional<std::string> path = diskPath(name);
  return !path || presenceOf(*path) != Presence::Missing;
}

bool removeFile(const std::string& name) {
  const std::optional<std::string> path = diskPath(name);
  return path && ::unlink(path->c_str()) == 0;
}

FileStamp fileStamp(const std::string& name) {
  constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
  struct stat status {};
  if (::stat(name.c_str(), &status) != 0) return {};
  return {status.st_mtim.tv_sec * kNanosecondsPerSecond + status.st_mtim.tv_nsec,
          static_cast<std::uint64_t>(status.st_size)};
}

bool setWorkingDirectory(const std::string& name) {
  return ::chdir(name.c_str()) == 0;
}

std::string absolutePath(const std::string& name) {
  if (isAbsolutePath(name)) return name;
  const std::unique_ptr<char, void (*)(void*)> current(::getcwd(nullptr, 0), &std::free);
  std::string path = presenceOf(name) == Presence::There ? name : diskPath(name).value_or(name);
  if (current == nullptr) return path;
  const std::string folder = current.get();
  return (folder == "/" ? folder : folder + "/") + path;
}

std::filesystem::path pathOf(const std::string& name) {
  return name;
}

std::string nameOf(const std::filesystem::path& path) {
  return path.string();
}

FileLock::FileLock(const std::string& name, Wait wait) {
  const std::optional<std::string> path = diskPath(name);
  if (!path) return;
  Descriptor file(openToWrite(linkTarget(*path) + ".lock", O_RDWR | O_CREAT, kOwnerOnly));
  if (!file.valid()) return;
  const int how = wait == Wait::Yes ? LOCK_EX : LOCK_EX | LOCK_NB;
  if (uninterrupted([&] { return ::flock(file.get(), how); }) == 0) {
    handle_ = file.release();
  } else {
    taken_ = errno == EWOULDBLOCK;
  }
}

FileLock::~FileLock() {
  // The lock's file stays: removed, two processes could each hold a lock on a file of that name.
  if (held()) ::close(static_cast<int>(handle_));
}

}  // namespace platform
