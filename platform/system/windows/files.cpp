// Files by the C run-time library of Windows and, where it lacks something, Windows itself.
#include "platform/system/files.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <iterator>
#include <vector>

#include <windows.h>
#include <direct.h>
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include "platform/system/file_steps.h"
#include "platform/system/path_name.h"
#include "platform/system/random.h"
#include "platform/system/windows/access_list.h"
#include "platform/text/code_page.h"
#include "platform/text/windows/wide_text.h"

namespace platform {
namespace {

constexpr int kNewFileMode = _S_IREAD | _S_IWRITE;
constexpr int kTemporaryNames = 100;  // tries; the folder would have to be full of them

// Another process that has the file open (one that replaces it, a virus scanner) is done with it in
// a moment: what it stands in the way of is tried again until then. True when `attempt` succeeded.
template <class Attempt>
bool outwaitOthers(const Attempt& attempt) {
  constexpr int kAttempts = 20;
  constexpr DWORD kPauseMs = 10;
  for (int left = kAttempts - 1;; --left) {
    if (attempt()) return true;
    const DWORD error = GetLastError();
    const bool inUse = error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED;
    if (!inUse || left == 0) return false;
    Sleep(kPauseMs);
  }
}

int errnoOf(DWORD error) {
  switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
      return ENOENT;
    case ERROR_DISK_FULL:
      return ENOSPC;
    default:
      return EACCES;
  }
}

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(const std::string& name, int flags)
      : number_(::_open(name.c_str(), flags | _O_NOINHERIT, kNewFileMode)) {}
  ~Descriptor() { close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return number_; }
  bool valid() const { return number_ != -1; }
  bool close() {
    const int number = number_;
    number_ = -1;
    return number == -1 || ::_close(number) == 0;
  }

 private:
  int number_;
};

bool writeAll(int file, std::string_view bytes) {
  const auto write = [file](const char* data, std::size_t size) {
    return ::_write(file, data, static_cast<unsigned>(std::min<std::size_t>(size, INT_MAX)));
  };
  return writeToEnd(write, bytes);
}

// Takes the handle over. -1, with errno set, when there are too many already.
int descriptorOf(HANDLE file, int flags) {
  const int number = ::_open_osfhandle(reinterpret_cast<std::intptr_t>(file), flags);
  if (number == -1) CloseHandle(file);
  return number;
}

// Lets others replace the file meanwhile, which _open does not. -1, with errno set, on failure.
int openToRead(const std::string& name) {
  constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  HANDLE file = INVALID_HANDLE_VALUE;
  const bool opened = outwaitOthers([&] {
    file = CreateFileA(name.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING,
                       FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    return file != INVALID_HANDLE_VALUE;
  });
  if (!opened) {
    errno = errnoOf(GetLastError());
    return -1;
  }
  return descriptorOf(file, _O_RDONLY | _O_BINARY);
}

// The access rights of a file, for the one that takes its place; the folder's when there is no such
// file.
class AccessRights {
 public:
  explicit AccessRights(const std::string& name) {
    DWORD size = 0;
    GetFileSecurityA(name.c_str(), DACL_SECURITY_INFORMATION, nullptr, 0, &size);
    descriptor_.resize(size);
    if (size > 0 && GetFileSecurityA(name.c_str(), DACL_SECURITY_INFORMATION, descriptor_.data(),
                                     size, &size) != 0) {
      attributes_.lpSecurityDescriptor = descriptor_.data();
    }
  }
  SECURITY_ATTRIBUTES* get() { return &attributes_; }

 private:
  std::vector<char> descriptor_;
  SECURITY_ATTRIBUTES attributes_{sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
};

// For writing. -1, with errno set, when it exists (EEXIST) or cannot be made.
int createNew(const std::string& name, AccessRights& rights) {
  const HANDLE file = CreateFileA(name.c_str(), GENERIC_WRITE, 0, rights.get(), CREATE_NEW,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file != INVALID_HANDLE_VALUE) return descriptorOf(file, _O_WRONLY | _O_BINARY);
  const DWORD error = GetLastError();
  errno = error == ERROR_FILE_EXISTS ? EEXIST : errnoOf(error);
  return -1;
}

bool openAndWrite(const std::string& name, int flags, std::string_view bytes) {
  Descriptor file(name, _O_WRONLY | _O_CREAT | flags);
  return file.valid() && writeAll(file.get(), bytes) && file.close();
}

bool isDirectory(const std::string& name) {
  const DWORD attributes = GetFileAttributesA(name.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

constexpr ACCESS_MASK kAddsFiles = FILE_ADD_FILE | GENERIC_WRITE | GENERIC_ALL;
constexpr ACCESS_MASK kReads = FILE_READ_DATA | GENERIC_READ | GENERIC_ALL;

constexpr const char* kTemporaryEnd = ".pwlapse-tmp";

// A name beside `path` that nothing has yet.
std::string temporaryName(const std::string& path) {
  return path + "." + std::to_string(random32()) + kTemporaryEnd;
}

bool moveOver(const std::string& from, const std::string& to) {
  const bool moved = outwaitOthers([&] {
    return MoveFileExA(from.c_str(), to.c_str(),
                       MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != FALSE;
  });
  if (!moved) errno = errnoOf(GetLastError());
  return moved;
}

}  // namespace

File openFile(const std::string& name, const char* mode) {
  // The line ends of a file that is read are converted by readTextLine, as everywhere: the
  // library's own translation would take them a second time, and ends the file at the first Ctrl-Z.
  return File(std::fopen(name.c_str(), std::string_view(mode) == "r" ? "rb" : mode));
}

bool readTextLine(std::FILE* file, std::size_t capacity, std::string& line) {
  return readTextLineBy([](std::FILE* from) { return _getc_nolock(from); }, file, capacity, line);
}

bool readWholeFile(const std::string& name, std::string& bytes, std::size_t limit) {
  bytes.clear();
  const Descriptor file(openToRead(name));
  if (!file.valid()) return false;
  const __int64 size = ::_filelengthi64(file.get());
  if (size > 0) bytes.reserve(std::min(static_cast<std::size_t>(size), limit));
  const auto read = [&file](char* data, std::size_t capacity) {
    return ::_read(file.get(), data, static_cast<unsigned>(capacity));
  };
  return readToEnd(read, limit, bytes);
}

bool writeWholeFile(const std::string& name, std::string_view bytes) {
  return openAndWrite(name, _O_TRUNC | _O_BINARY, bytes);
}

bool writeTextFile(const std::string& name, std::string_view text) {
  return openAndWrite(name, _O_TRUNC | _O_TEXT, text);
}

// A new file has the rights of its folder here, whoever is to read it.
bool replaceFileAtomically(const std::string& name, std::string_view bytes, FileReaders) {
  AccessRights rights(name);
  for (int i = 0; i < kTemporaryNames; ++i) {
    const std::string temporary = temporaryName(name);
    Descriptor file(createNew(temporary, rights));
    if (!file.valid() && errno == EEXIST) continue;
    if (!file.valid()) return false;
    if (writeAll(file.get(), bytes) && ::_commit(file.get()) == 0 && file.close() &&
        moveOver(temporary, name)) {
      return true;
    }
    const int reason = errno;
    file.close();
    ::_unlink(temporary.c_str());
    errno = reason;
    return false;
  }
  return false;
}

void removeTemporaries(const std::string& name) {
  const std::string folder = name.substr(0, name.find_last_of("\\/") + 1);
  WIN32_FIND_DATAA entry;
  const HANDLE search = FindFirstFileA((name + ".*" + kTemporaryEnd).c_str(), &entry);
  if (search == INVALID_HANDLE_VALUE) return;
  const FileLock lock(name, FileLock::Wait::No);
  while (lock.held()) {
    DeleteFileA((folder + entry.cFileName).c_str());
    if (FindNextFileA(search, &entry) == 0) break;
  }
  FindClose(search);
}

bool appendToFile(const std::string& name, std::string_view text) {
  return openAndWrite(name, _O_APPEND | _O_TEXT, text);
}

bool overwriteInFile(const std::string& name, std::uint64_t offset, std::string_view bytes) {
  Descriptor file(name, _O_WRONLY | _O_BINARY);
  if (!file.valid() || bytes.size() > INT_MAX) return false;
  const auto size = static_cast<int>(bytes.size());
  return ::_lseeki64(file.get(), static_cast<__int64>(offset), SEEK_SET) != -1 &&
         ::_write(file.get(), bytes.data(), static_cast<unsigned>(size)) == size &&
         ::_commit(file.get()) == 0 && file.close();
}

bool createDirectory(const std::string& name) {
  return ::_mkdir(name.c_str()) == 0 || isDirectory(name);
}

bool folderIsShared(const std::string& folder) {
  return isGrantedToEverybody(folder, SE_FILE_OBJECT, kAddsFiles);
}

bool fileIsShared(const std::string& name) {
  return isGrantedToEverybody(name, SE_FILE_OBJECT, kReads);
}

bool fileExists(const std::string& name) {
  if (GetFileAttributesA(name.c_str()) != INVALID_FILE_ATTRIBUTES) return true;
  return errnoOf(GetLastError()) != ENOENT;
}

bool removeFile(const std::string& name) {
  return ::_unlink(name.c_str()) == 0;
}

FileStamp fileStamp(const std::string& name) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (GetFileAttributesExA(name.c_str(), GetFileExInfoStandard, &data) == FALSE) return {};
  const auto join = [](DWORD high, DWORD low) { return std::uint64_t{high} << 32U | low; };
  const FILETIME& written = data.ftLastWriteTime;
  return {static_cast<std::int64_t>(join(written.dwHighDateTime, written.dwLowDateTime)),
          join(data.nFileSizeHigh, data.nFileSizeLow)};
}

bool setWorkingDirectory(const std::string& name) {
  return ::_chdir(name.c_str()) == 0;
}

std::string absolutePath(const std::string& name) {
  // Not GetFullPathNameA: of a current folder with a character that the code page lacks it makes a
  // similar name, which is another folder's.
  const std::wstring wide = toWide(ansiToUtf16(name));
  const DWORD needed = GetFullPathNameW(wide.c_str(), 0, nullptr, nullptr);
  std::wstring path(needed, L'\0');
  const DWORD length = GetFullPathNameW(wide.c_str(), needed, path.data(), nullptr);
  return length == 0 || length >= needed ? name : utf16ToAnsi(fromWide(path.c_str()));
}

std::filesystem::path pathOf(const std::string& name) {
  return toWide(ansiToUtf16(name));
}

std::string nameOf(const std::filesystem::path& path) {
  return utf16ToAnsi(fromWide(path.c_str()));
}

FileLock::FileLock(const std::string& name, Wait wait) {
  const HANDLE file = CreateFileA((name + ".lock").c_str(), GENERIC_READ | GENERIC_WRITE,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    errno = errnoOf(GetLastError());
    return;
  }
  OVERLAPPED start{};
  const DWORD how = LOCKFILE_EXCLUSIVE_LOCK | (wait == Wait::Yes ? 0 : LOCKFILE_FAIL_IMMEDIATELY);
  if (LockFileEx(file, how, 0, 1, 0, &start) != 0) {
    handle_ = reinterpret_cast<std::intptr_t>(file);
  } else {
    const DWORD error = GetLastError();
    taken_ = error == ERROR_LOCK_VIOLATION || error == ERROR_IO_PENDING;
    CloseHandle(file);
    errno = taken_ ? EAGAIN : errnoOf(error);
  }
}

FileLock::~FileLock() {
  // The lock's file stays, as on the other systems; closing the handle gives the lock up.
  if (held()) CloseHandle(reinterpret_cast<HANDLE>(handle_));
}

}  // namespace platform
