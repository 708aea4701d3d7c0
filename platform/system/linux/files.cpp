// Files by the system's own relative names, over the system calls of POSIX.
//
// A name is tried in its lower-case spelling first, at the cost of one look-up; only when that does
// not exist are folders searched for another spelling.
#include "platform/system/files.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <mutex>

#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/ascii.h"
#include "platform/system/file_steps.h"

namespace platform {
namespace {

constexpr mode_t kOwnerOnly = 0600;
constexpr mode_t kFileMode = 0666;       // less the process's umask
constexpr mode_t kDirectoryMode = 0777;  // likewise

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() { close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return number_; }
  bool valid() const { return number_ != -1; }
  // A delayed write may be refused only now, so writers ask.
  bool close() {
    const int number = number_;
    number_ = -1;
    return number == -1 || ::close(number) == 0;
  }

 private:
  int number_;
};

bool isAbsolute(const std::string& name) {
  return !name.empty() && name[0] == '/';
}

bool exists(const std::string& path) {
  return ::access(path.c_str(), F_OK) == 0;
}

// Names that the system gives are ASCII, so other letters are left alone.
std::string lowerCasePath(const std::string& name) {
  std::string path = name;
  std::transform(path.begin(), path.end(), path.begin(),
                 [](char c) { return c == '\\' ? '/' : base::lowerAscii(c); });
  return path;
}

// The entry of `folder` that spells `wanted` in some letter case, or `wanted` itself. Among several
// the first by byte order, so that the answer does not hang on the order of the folder.
std::string findEntry(const std::string& folder, const std::string& wanted) {
  const std::unique_ptr<DIR, int (*)(DIR*)> open(::opendir(folder.empty() ? "." : folder.c_str()),
                                                 &::closedir);
  std::string found;
  while (open != nullptr) {
    const dirent* entry = ::readdir(open.get());
    if (entry == nullptr) break;
    if (::strcasecmp(entry->d_name, wanted.c_str()) != 0) continue;
    if (found.empty() || entry->d_name < found) found = entry->d_name;
  }
  return found.empty() ? wanted : found;
}

// The path on disk that a name stands for, whether or not it exists.
std::string diskPath(const std::string& name) {
  if (isAbsolute(name)) return name;
  std::string lower = lowerCasePath(name);
  if (exists(lower)) return lower;
  std::string path;
  for (std::size_t begin = 0; begin < lower.size();) {
    const std::size_t end = std::min(lower.find('/', begin), lower.size());
    const std::string part = lower.substr(begin, end - begin);
    if (exists(path + part)) {
      path += part;
    } else {
      path += findEntry(path, part);
    }
    if (end < lower.size()) path += '/';
    begin = end + 1;
  }
  return path;
}

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

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

bool openAndWrite(const std::string& name, int flags, std::string_view bytes) {
  Descriptor file(
      ::open(diskPath(name).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, kFileMode));
  return file.valid() && writeAll(file.get(), bytes) && file.close();
}

// The file behind a chain of symbolic links, so that replacing it leaves the links in place.
std::string linkTarget(const std::string& path) {
  const std::unique_ptr<char, void (*)(void*)> target(::realpath(path.c_str(), nullptr),
                                                      &std::free);
  return target != nullptr ? std::string(target.get()) : path;
}

// When root does an unprivileged service's work, the file must stay readable to that service.
void keepOwner(int file, const std::string& like) {
  struct stat status {};
  if (::geteuid() != 0 || ::stat(like.c_str(), &status) != 0) return;
  if (::fchown(file, status.st_uid, status.st_gid) != 0) return;  // then it is root's
}

}  // namespace

File openFile(const std::string& name, const char* mode) {
  ignoreFileSizeSignal();
  const std::string closedOnExec = std::string(mode) + "e";
  File file(std::fopen(diskPath(name).c_str(), closedOnExec.c_str()));
  struct stat status {};
  if (file && ::fstat(::fileno(file.get()), &status) == 0 && S_ISDIR(status.st_mode)) {
    file.reset();  // a folder opens for reading here, and only here
    errno = EISDIR;
  }
  return file;
}

bool readTextLine(std::FILE* file, std::size_t capacity, std::string& line) {
  return readTextLineBy([](std::FILE* from) { return getc_unlocked(from); }, file, capacity, line);
}

bool readWholeFile(const std::string& name, std::string& bytes, std::size_t limit) {
  bytes.clear();
  const Descriptor file(::open(diskPath(name).c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.valid()) return false;
  struct stat status {};
  if (::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode)) {
    bytes.reserve(std::min(static_cast<std::size_t>(status.st_size), limit));
  }
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

bool replaceFileAtomically(const std::string& name, std::string_view bytes) {
  const std::string path = linkTarget(diskPath(name));
  std::string temporary = path + ".XXXXXX";
  Descriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
  if (!file.valid()) return false;
  keepOwner(file.get(), path);
  const bool stored = ::fchmod(file.get(), kOwnerOnly) == 0 && writeAll(file.get(), bytes) &&
                      ::fsync(file.get()) == 0 && file.close() &&
                      std::rename(temporary.c_str(), path.c_str()) == 0;
  if (!stored) {
    const int reason = errno;
    ::unlink(temporary.c_str());
    errno = reason;
    return false;
  }
  // The new file is in place whatever becomes of this; it only makes the name survive a power cut.
  const Descriptor folder(::open(folderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder.valid()) ::fsync(folder.get());
  return true;
}

bool appendToFile(const std::string& name, std::string_view text) {
  return openAndWrite(name, O_APPEND, text);
}

bool overwriteInFile(const std::string& name, std::uint64_t offset, std::string_view bytes) {
  ignoreFileSizeSignal();
  Descriptor file(::open(diskPath(name).c_str(), O_WRONLY | O_CLOEXEC));
  if (!file.valid()) return false;
  const ssize_t written = uninterrupted(
      [&] { return ::pwrite(file.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset)); });
  return written == static_cast<ssize_t>(bytes.size()) && ::fdatasync(file.get()) == 0 &&
         file.close();
}

bool createDirectory(const std::string& name) {
  const std::string path = diskPath(name);
  if (::mkdir(path.c_str(), kDirectoryMode) == 0) return true;
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool fileExists(const std::string& name) {
  return exists(diskPath(name));
}

bool removeFile(const std::string& name) {
  return ::unlink(diskPath(name).c_str()) == 0;
}

bool setWorkingDirectory(const std::string& name) {
  return ::chdir(name.c_str()) == 0;
}

std::string absolutePath(const std::string& name) {
  if (isAbsolute(name)) return name;
  const std::unique_ptr<char, void (*)(void*)> current(::getcwd(nullptr, 0), &std::free);
  std::string path = exists(name) ? name : diskPath(name);
  if (current == nullptr) return path;
  const std::string folder = current.get();
  return (folder == "/" ? folder : folder + "/") + path;
}

FileLock::FileLock(const std::string& name, Wait wait) {
  const std::string path = linkTarget(diskPath(name));
  const int file =
      ::open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kOwnerOnly);
  if (file == -1) return;
  keepOwner(file, path);
  const int how = wait == Wait::Yes ? LOCK_EX : LOCK_EX | LOCK_NB;
  if (uninterrupted([file, how] { return ::flock(file, how); }) == 0) {
    handle_ = file;
  } else {
    taken_ = errno == EWOULDBLOCK;
    ::close(file);
  }
}

FileLock::~FileLock() {
  // The lock's file stays: removed, two processes could each hold a lock on a file of that name.
  if (held()) ::close(static_cast<int>(handle_));
}

}  // namespace platform
